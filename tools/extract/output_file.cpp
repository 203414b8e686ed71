#include "tools/extract/output_file.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace extract {

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
    file_ = std::fopen(path_.c_str(), "wb");
    if (file_ == nullptr) {
        fail("cannot create", errno);
        return;
    }
    struct stat info;
    regular_ = fstat(fileno(file_), &info) == 0 && S_ISREG(info.st_mode);
}

OutputFile::~OutputFile() {
    if (!finished_) discard();
}

void OutputFile::fail(const char* what, int error) {
    if (!error_.empty()) return;
    error_ = std::string(what) + " " + path_ + ": " + std::strerror(error != 0 ? error : EIO);
}

void OutputFile::write(const void* data, size_t length) {
    if (file_ == nullptr || !ok() || length == 0) return;
    if (std::fwrite(data, 1, length, file_) != length) fail("cannot write", errno);
}

bool OutputFile::finish() {
    if (file_ != nullptr) {
        if (std::fflush(file_) != 0) fail("cannot write", errno);
        if (std::fclose(file_) != 0) fail("cannot write", errno);
        file_ = nullptr;
    }
    if (!ok()) {
        discard();
        return false;
    }
    finished_ = true;
    return true;
}

void OutputFile::discard() {
    if (file_ != nullptr) {
        std::fclose(file_);
        file_ = nullptr;
    }
    if (regular_) ::unlink(path_.c_str());
    regular_ = false;
    finished_ = true;
}

}  // namespace extract
