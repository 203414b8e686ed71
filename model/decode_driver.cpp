#include <cstring>
#include <stdexcept>

#include "prc/io/prc_header.h"
#include "worker/decoded_model.h"

// Header-only stage: the start and the first header parse of the decode;
// nothing is drawn yet, so every readable file reports "no geometry".
bool decodePrcModel(const uint8_t* data, uint64_t size, DecodedModel* out) {
    std::memset(out, 0, sizeof *out);
    if (data == nullptr || size == 0) {
        out->outcome = kOutcomeNoResult;
        return false;
    }
    try {
        const prc::PRCHeader header = prc::readPRCHeader(data, size);
        out->minimal_version_for_read = header.minimal_version_for_read;
        out->authoring_version = header.authoring_version;
        out->number_of_file_structures = header.number_of_file_structures;
    } catch (const std::exception&) {
        std::memset(out, 0, sizeof *out);
        out->outcome = kOutcomeDecodingError;
        return false;
    }
    std::memset(out, 0, sizeof *out);
    out->outcome = kOutcomeNoGeometry;
    return false;
}
