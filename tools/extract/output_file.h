#pragma once
// A file written by the tool. Every write is checked, the close too (a full
// disk often shows only there), and a file that could not be written whole
// is removed rather than left behind looking complete.

#include <cstddef>
#include <cstdio>
#include <string>

namespace extract {

class OutputFile {
public:
    explicit OutputFile(std::string path);
    ~OutputFile();  // an unfinished file is discarded
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // False once anything failed; the first failure is kept in error().
    bool ok() const { return error_.empty(); }
    const std::string& error() const { return error_; }
    const std::string& path() const { return path_; }

    void write(const void* data, size_t length);
    void write(const std::string& text) { write(text.data(), text.size()); }
    // Flushes and closes; true when the whole file is on its way to the disk.
    bool finish();

private:
    void fail(const char* what, int error);
    void discard();

    std::string path_;
    FILE* file_ = nullptr;
    bool regular_ = false;  // only regular files are removed on failure (never /dev/full or a pipe)
    bool finished_ = false;
    std::string error_;
};

}  // namespace extract
