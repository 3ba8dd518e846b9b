// The files a run writes, each through a hidden temporary beside it that is renamed over the name only
// once every file of the run is complete, so a run that fails leaves no file and the earlier ones as they
// were. "-" is standard output, written directly.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace Analyse {

class OutputFiles {
public:
    OutputFiles() = default;
    ~OutputFiles();  // removes the temporaries not committed
    OutputFiles(const OutputFiles&) = delete;
    OutputFiles& operator=(const OutputFiles&) = delete;

    // A stream to write `name` into; nullptr after printing why not.
    FILE* open(const std::string& name);
    // Closes every stream and renames the temporaries; false after printing the first failure.
    bool commit();

private:
    struct Pending {
        std::string name, temporary;
        FILE* stream;
    };
    std::vector<Pending> pending_;
};

}  // namespace Analyse
