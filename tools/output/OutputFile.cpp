// Output files that replace the earlier file only once complete. A regular file is written to a
// temporary beside it; commit flushes, syncs and renames it over the name, and a file abandoned removes
// it, so the name holds the earlier file or the whole new one. The temporary list a host gives may remove
// it when the process is stopped.
#include "output/OutputFile.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>


namespace {

TemporaryList plainTemporaries;

// ---- Names ----

constexpr int kMaxLinks = 40;              // the kernel's own limit before ELOOP
constexpr size_t kMaxTemporaryStem = 200;  // keeps ".stem.XXXXXX" within NAME_MAX
constexpr mode_t kNewFileMode = 0666;      // what fopen gives a new file, less the umask
constexpr size_t kCopyChunk = 64 * 1024;

// The directory part of a path with its final '/', or "" for a bare name.
std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// Follows symbolic links from `path` to the file they name, which need not exist yet (a dangling link
// gets its target created, as fopen would do). 0 or errno; `exists` and `status` describe the target.
int followLinks(std::string& path, bool& exists, struct stat& status) {
    for (int hops = 0; hops <= kMaxLinks; ++hops) {
        exists = lstat(path.c_str(), &status) == 0;
        if (!exists) return errno == ENOENT ? 0 : errno;
        if (!S_ISLNK(status.st_mode)) return 0;
        char link[PATH_MAX];
        const ssize_t length = readlink(path.c_str(), link, sizeof link);
        if (length < 0) return errno;
        if (size_t(length) == sizeof link) return ENAMETOOLONG;
        const std::string linked(link, size_t(length));
        path = !linked.empty() && linked.front() == '/' ? linked : directoryOf(path) + linked;
    }
    return ELOOP;
}

mode_t currentUmask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

// A temporary that vanishes with the process whatever happens: O_TMPFILE in $TMPDIR, else tmpfile().
FILE* anonymousTemporary() {
#ifdef O_TMPFILE
    const char* directory = std::getenv("TMPDIR");
    const int descriptor =
        ::open(directory != nullptr && *directory != '\0' ? directory : "/tmp", O_TMPFILE | O_RDWR, 0600);
    if (descriptor >= 0) {
        FILE* file = fdopen(descriptor, "w+b");
        if (file == nullptr) close(descriptor);
        return file;
    }
#endif
    return std::tmpfile();
}

}  // namespace

int TemporaryList::create(std::string& path, int& descriptor) {
    descriptor = mkstemp(path.data());
    return descriptor < 0 ? -1 : 0;
}

int TemporaryList::retire(int /*entry*/, const std::string& path, const char* target) {
    if (target != nullptr && std::rename(path.c_str(), target) == 0) return 0;
    const int error = target == nullptr ? 0 : errno;
    unlink(path.c_str());
    return error;
}

OutputFile::OutputFile(std::string name, FILE* standardOutput, TemporaryList* temporaries)
    : name_(std::move(name)),
      toStandardOutput_(name_ == "-"),
      standardOutput_(standardOutput),
      temporaries_(temporaries != nullptr ? *temporaries : plainTemporaries) {}

OutputFile::~OutputFile() {
    if (stream_ != nullptr || temporarySlot_ >= 0) abandon();
}

bool OutputFile::open(bool needSeek) {
    temporaries_.opening();
    opened_ = openStream(needSeek);
    return opened_;
}

bool OutputFile::openStream(bool needSeek) {
    if (toStandardOutput_) {
        if (needSeek) return openThroughCopy(standardOutput_);
        stream_ = standardOutput_;
        return true;
    }
    struct stat status {};
    const bool exists = stat(name_.c_str(), &status) == 0;
    if (!exists && errno != ENOENT) {
        fail(errno);
        return false;
    }
    // open(2) says EISDIR for a directory, and for a new name ending in '/'.
    if ((exists && S_ISDIR(status.st_mode)) || name_.empty() || name_.back() == '/') {
        fail(name_.empty() ? ENOENT : EISDIR);
        return false;
    }
    if (exists && !S_ISREG(status.st_mode)) return openInPlace(needSeek);
    std::string target = name_;
    bool targetExists = false;
    if (const int error = followLinks(target, targetExists, status)) {
        fail(error);
        return false;
    }
    return openReplacement(target, targetExists ? &status : nullptr);
}

// A temporary beside the target, with the target's permission bits and owner (best effort), or the
// bits fopen would give a new file. A file the user may not write stays refused, as fopen would.
bool OutputFile::openReplacement(const std::string& target, const struct stat* existing) {
    if (existing != nullptr && faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0) {
        fail(errno);
        return false;
    }
    const std::string directory = directoryOf(target);
    const std::string stem = target.substr(directory.size(), kMaxTemporaryStem);
    int descriptor = -1;
    temporaryPath_ = directory + "." + stem + ".XXXXXX";
    temporarySlot_ = temporaries_.create(temporaryPath_, descriptor);
    if (temporarySlot_ < 0) {
        fail(errno);
        return false;
    }
    target_ = target;
    if (existing != nullptr && fchown(descriptor, existing->st_uid, existing->st_gid) != 0) {
        // Only root may give a file away; anyone else keeps the file as theirs.
    }
    fchmod(descriptor, existing != nullptr ? existing->st_mode & 07777 : kNewFileMode & ~currentUmask());
    stream_ = fdopen(descriptor, "w+b");
    if (stream_ != nullptr) return true;
    fail(errno);
    close(descriptor);
    abandon();
    return false;
}

// Devices, FIFOs and sockets are written where they are: there is nothing to replace.
bool OutputFile::openInPlace(bool needSeek) {
    FILE* file = std::fopen(name_.c_str(), "wb");
    if (file == nullptr) {
        fail(errno);
        return false;
    }
    if (needSeek) return openThroughCopy(file);
    stream_ = file;
    return true;
}

// A writer that seeks back cannot write to a pipe or a device: it fills an anonymous temporary, which
// commit copies to the destination.
bool OutputFile::openThroughCopy(FILE* destination) {
    destination_ = destination;
    stream_ = anonymousTemporary();
    if (stream_ != nullptr) return true;
    fail(errno);
    abandon();
    return false;
}

bool OutputFile::write(const void* data, size_t bytes) {
    if (failed() || stream_ == nullptr) return false;
    if (bytes != 0 && std::fwrite(data, 1, bytes, stream_) != bytes) fail(errno);
    return !failed();
}

void OutputFile::fail(int error) {
    if (failed()) return;
    reason_ = error != 0 ? std::strerror(error) : "write error";
}

bool OutputFile::finish() {
    if (finished_) return !failed();
    if (stream_ == nullptr) fail(EBADF);
    if (!failed()) finishWriting();
    if (failed()) {
        abandon();
        return false;
    }
    finished_ = true;
    return true;
}

bool OutputFile::commit() {
    if (!finish()) return false;
    if (temporarySlot_ >= 0) {
        if (const int error = temporaries_.retire(temporarySlot_, temporaryPath_, target_.c_str())) fail(error);
        temporarySlot_ = -1;
    }
    return !failed();
}

// Every byte reaches its file: flushed, copied out if the destination could not seek, and synced before
// a temporary replaces a file (so that after a crash the name holds the earlier file or the whole new
// one, never an empty one). Closes the streams; keeps the first failure.
void OutputFile::finishWriting() {
    if (std::ferror(stream_)) fail(EIO);  // a library wrote, failed and did not say why
    if (std::fflush(stream_) != 0) fail(errno);
    if (destination_ != nullptr && !failed()) copyToDestination();
    if (temporarySlot_ >= 0 && !failed() && fsync(fileno(stream_)) != 0) fail(errno);
    closeStream(stream_);
    closeStream(destination_);
}

void OutputFile::copyToDestination() {
    std::rewind(stream_);
    char chunk[kCopyChunk];
    for (size_t count; !failed() && (count = std::fread(chunk, 1, sizeof chunk, stream_)) > 0;)
        if (std::fwrite(chunk, 1, count, destination_) != count) fail(errno);
    if (std::ferror(stream_)) fail(EIO);
    if (std::fflush(destination_) != 0) fail(errno);
}

// Standard output is only flushed: it belongs to whoever handed it over.
void OutputFile::closeStream(FILE*& stream) {
    if (stream == nullptr) return;
    if ((stream == standardOutput_ ? std::fflush(stream) : std::fclose(stream)) != 0) fail(errno);
    stream = nullptr;
}

void OutputFile::abandon() {
    for (FILE** stream : {&stream_, &destination_}) {
        if (*stream != nullptr && *stream != standardOutput_) std::fclose(*stream);
        *stream = nullptr;
    }
    if (temporarySlot_ >= 0) temporaries_.retire(temporarySlot_, temporaryPath_, nullptr);
    temporarySlot_ = -1;
}

namespace {

// The file a name leads to, for comparing two names: its device and inode when it exists (standard
// output's for "-"), else the resolved directory and name it would be created as.
struct Destination {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    std::string path;

    bool operator==(const Destination& other) const {
        return exists == other.exists && (exists ? device == other.device && inode == other.inode : path == other.path);
    }
};

Destination destinationOf(const std::string& name) {
    Destination destination;
    struct stat status {};
    if (name == "-" ? fstat(STDOUT_FILENO, &status) == 0 : stat(name.c_str(), &status) == 0) {
        destination.exists = true;
        destination.device = status.st_dev;
        destination.inode = status.st_ino;
        return destination;
    }
    std::string target = name;
    bool exists = false;
    followLinks(target, exists, status);
    std::error_code error;
    destination.path = std::filesystem::weakly_canonical(std::filesystem::absolute(target, error), error).string();
    if (error) destination.path = target;
    return destination;
}

}  // namespace

bool OutputFile::sameDestination(const std::string& first, const std::string& second) {
    return destinationOf(first) == destinationOf(second);
}
