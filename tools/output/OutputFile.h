// What every writer does with a file it created but could not complete.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace OutputFile {

// Removes the incomplete file, so that a failed write (a full disk, say) never leaves a
// truncated file that looks valid. Only regular files are removed: a device such as /dev/full
// stays.
inline void removeIncomplete(const std::string& fileName) {
    std::error_code error;
    if (std::filesystem::is_regular_file(fileName, error)) std::filesystem::remove(fileName, error);
}

}  // namespace OutputFile
