// Where a writer's bytes go. Writers never open files themselves: the driver opens an OutputFile,
// the writer writes through it, and the driver commits it (or abandons it on failure).
//
// A failed, stopped or concurrent run never costs the user a file: a regular file (or a new name) is
// written to a temporary beside it and renamed over the name only once complete, so the name holds
// the earlier file or the whole new one. Devices, FIFOs and standard output are written in place.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdio>
#include <string>

// How the temporaries of files not yet complete are made and retired. This plain list keeps no record;
// a host that removes them when the process is stopped (the program, on a stop signal or at exit) gives
// one of its own, which lists each temporary for as long as it exists.
class TemporaryList {
public:
    virtual ~TemporaryList() = default;
    // Before a file is opened.
    virtual void opening() {}
    // Creates a temporary from path (ending in XXXXXX, which becomes the name made) and opens it: its
    // entry in the list, or -1 with errno set.
    virtual int create(std::string& path, int& descriptor);
    // Renames the temporary to target, or removes it when target is null, and unlists it: 0, or the
    // rename's errno (the temporary is then removed).
    virtual int retire(int entry, const std::string& path, const char* target);
};

class OutputFile {
public:
    // "-" names standard output, written to standardOutput (the driver may have moved it aside).
    // Temporaries are made through `temporaries`, which must outlive the file (null: the plain list).
    explicit OutputFile(std::string name, FILE* standardOutput = stdout, TemporaryList* temporaries = nullptr);
    ~OutputFile();  // abandons a file that was opened and not committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // needSeek: the writer seeks back (TIFF); a destination that cannot seek is then written
    // through a temporary file first. False on failure, with reason() set.
    bool open(bool needSeek = false);
    // Whether open() succeeded: false when the file could not be created.
    bool opened() const { return opened_; }
    // Valid between open() and finish(), commit() or abandon().
    FILE* stream() const { return stream_; }
    // Writes bytes; after the first failure it writes nothing more and keeps returning false.
    bool write(const void* data, size_t bytes);
    // Records a failure found by a library that writes to stream() itself (errno, or 0 for none).
    void fail(int error);
    bool failed() const { return !reason_.empty(); }
    // Writes every byte out, syncs and closes the file, leaving a temporary where commit() will find it,
    // so that several outputs can be completed before any replaces its name. False with reason() set
    // (the file is then abandoned).
    bool finish();
    // Finishes the file if that was not done, then puts it in place; false with reason() set.
    bool commit();
    // Closes and removes what was written.
    void abandon();

    const std::string& name() const { return name_; }
    // Why the first failure happened (the system's text), empty if nothing failed.
    const std::string& reason() const { return reason_; }

    // Whether two names lead to the same file: the same device and inode when it exists (symbolic links
    // followed, "-" being standard output), else the same resolved directory and name.
    static bool sameDestination(const std::string& first, const std::string& second);


private:
    bool openStream(bool needSeek);
    bool openReplacement(const std::string& target, const struct stat* existing);
    bool openInPlace(bool needSeek);
    bool openThroughCopy(FILE* destination);
    void finishWriting();
    void copyToDestination();
    void closeStream(FILE*& stream);

    std::string name_;
    std::string reason_;
    FILE* stream_ = nullptr;
    bool opened_ = false;
    bool finished_ = false;
    bool toStandardOutput_ = false;
    FILE* standardOutput_ = stdout;
    TemporaryList& temporaries_;
    std::string target_;           // the regular file the temporary replaces
    std::string temporaryPath_;    // the temporary beside it
    int temporarySlot_ = -1;       // the temporary's entry in the list
    FILE* destination_ = nullptr;  // a destination that cannot seek, filled from stream_ at commit
};
