#include "worker/worker_entry.h"

#include <cstdint>
#include <cstdlib>
#include <cwctype>
#include <vector>

#include "platform/platform.h"
#include "worker/command_line.h"
#include "worker/result_stream.h"

namespace {

// The file size as a signed 32-bit value, where the Windows runtime's ftell
// reports a size beyond its range as -1 (a long is 32 bits there); a longer
// long elsewhere must not let such a file through.
int32_t fileSize(FILE* file) {
    if (std::fseek(file, 0, SEEK_END) != 0) return -1;
    const long end = std::ftell(file);
    std::fseek(file, 0, SEEK_SET);
    return end >= 0 && end <= INT32_MAX ? static_cast<int32_t>(end) : -1;
}

}  // namespace

std::optional<std::wstring> inputPathArgument(const wchar_t* commandLine) {
    if (commandLine == nullptr) return std::nullopt;
    while (*commandLine != L'\0' && std::iswspace(static_cast<wint_t>(*commandLine))) ++commandLine;
    if (*commandLine == L'\0') return std::nullopt;
    std::vector<std::wstring> arguments = splitCommandLine(commandLine);
    if (arguments.size() != 2) return std::nullopt;
    return std::move(arguments[1]);
}

const char* readInputFile(const std::wstring& path, InputBytes& out) {
    FILE* file = platformOpenFile(path);
    if (file == nullptr) return kOpenFailedMessage;
    const int32_t size = fileSize(file);
    if (size <= 0) {
        std::fclose(file);
        return kEmptyInputMessage;
    }
    auto* buffer = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(size)));
    if (buffer == nullptr) {
        std::fclose(file);
        return kOutOfMemoryMessage;
    }
    const size_t read = std::fread(buffer, 1, static_cast<size_t>(size), file);
    std::fclose(file);
    if (read < static_cast<size_t>(size)) {
        std::free(buffer);
        return kShortReadMessage;
    }
    out.data = buffer;
    out.size = static_cast<uint32_t>(size);
    return nullptr;
}

int writeDecodeResult(FILE* stream, bool decoded, const DecodedModel& model) {
    if (!decoded) return writeFailureHeaderTo(stream, model.outcome);
    if (exceedsPreviewLimit(model)) return writeErrorRecordTo(stream, kTooLargeMessage);
    return writeSuccessStreamTo(stream, model);
}

int runWorker(int argc, char** argv) {
    // decodePrcModel is overloaded; the contract's form is the one meant.
    return runWorkerWith(argc, argv, static_cast<DecodeFunction>(&decodePrcModel));
}

int runWorkerWith(int argc, char** argv, DecodeFunction decode) {
    setStdoutBinary();
    const std::wstring commandLine = platformCommandLine(argc, argv);
    const std::optional<std::wstring> path = inputPathArgument(commandLine.c_str());
    if (!path) return writeErrorRecord(kUsageMessage);

    InputBytes input;
    if (const char* failure = readInputFile(*path, input)) return writeErrorRecord(failure);

    DecodedModel model{};
    const bool decoded = decode(input.data, input.size, &model);
    std::free(input.data);
    // The model's blocks are left to the end of the process, which follows at
    // once: freeing them would only delay the host.
    platformExit(writeDecodeResult(stdout, decoded, model));
}
