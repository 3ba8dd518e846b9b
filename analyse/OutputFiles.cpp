#include "OutputFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "CommandLineReading.h"

namespace Analyse {

using PatternRender::CommandLineReading::error;

namespace {

constexpr const char* standardOutputName = "-";

// ".NAME.XXXXXX" in the directory of `name`.
std::string temporaryPattern(const std::string& name) {
    const size_t slash = name.rfind('/');
    const std::string directory = slash == std::string::npos ? "" : name.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    return directory + "." + base + ".XXXXXX";
}

// New files get 0666 less the umask, as a plain open would give them.
void giveUsualPermissions(int descriptor) {
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(descriptor, 0666 & ~mask);
}

}  // namespace

OutputFiles::~OutputFiles() {
    for (const Pending& file : pending_) {
        if (file.stream != nullptr && file.stream != stdout) std::fclose(file.stream);
        if (!file.temporary.empty()) unlink(file.temporary.c_str());
    }
}

FILE* OutputFiles::open(const std::string& name) {
    if (name == standardOutputName) {
        pending_.push_back({name, "", stdout});
        return stdout;
    }
    std::string temporary = temporaryPattern(name);
    const int descriptor = mkstemp(&temporary[0]);
    if (descriptor < 0) {
        error("Cannot write %s: %s", name.c_str(), std::strerror(errno));
        return nullptr;
    }
    giveUsualPermissions(descriptor);
    FILE* stream = fdopen(descriptor, "wb");
    if (stream == nullptr) {
        close(descriptor);
        unlink(temporary.c_str());
        error("Cannot write %s: %s", name.c_str(), std::strerror(errno));
        return nullptr;
    }
    pending_.push_back({name, temporary, stream});
    return stream;
}

bool OutputFiles::commit() {
    for (Pending& file : pending_) {
        const bool written = std::fflush(file.stream) == 0 && !std::ferror(file.stream) &&
                             (file.stream == stdout || fsync(fileno(file.stream)) == 0);
        const int reason = errno;
        if (file.stream != stdout && std::fclose(file.stream) != 0 && written) {
            file.stream = nullptr;
            return error("Cannot write %s: %s", file.name.c_str(), std::strerror(errno));
        }
        file.stream = nullptr;
        if (!written) return error("Cannot write %s: %s", file.name.c_str(), std::strerror(reason));
    }
    for (Pending& file : pending_) {
        if (file.temporary.empty()) continue;
        if (std::rename(file.temporary.c_str(), file.name.c_str()) != 0)
            return error("Cannot write %s: %s", file.name.c_str(), std::strerror(errno));
        file.temporary.clear();
    }
    return true;
}

}  // namespace Analyse
