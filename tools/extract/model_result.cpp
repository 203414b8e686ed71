#include "tools/extract/model_result.h"

#include "tools/inspect/result_stream_reader.h"

namespace extract {

const char* outcomeName(Outcome outcome) {
    switch (outcome) {
        case Outcome::Decoded: return "decoded";
        case Outcome::NoGeometry: return "no geometry";
        case Outcome::DecodingError: return "decoding error";
        case Outcome::OutOfMemory: return "out of memory";
        case Outcome::Refused: return "refused";
        case Outcome::WorkerFailed: return "worker failed";
        case Outcome::InvalidAnswer: return "invalid answer";
        case Outcome::NotSupported: return "not supported";
        case Outcome::NotPrc: return "not PRC";
        case Outcome::Unreadable: return "unreadable";
    }
    return "unreadable";
}

PrcHeaderPeek peekPrcHeader(const std::vector<uint8_t>& bytes) {
    // "PRC", two u32 versions, two 16-byte file identifiers, then the
    // number of file structures: 47 bytes in all.
    PrcHeaderPeek peek;
    if (bytes.size() < 11 || bytes[0] != 'P' || bytes[1] != 'R' || bytes[2] != 'C') return peek;
    const auto u32 = [&](size_t offset) {
        return uint32_t{bytes[offset]} | uint32_t{bytes[offset + 1]} << 8 | uint32_t{bytes[offset + 2]} << 16 |
               uint32_t{bytes[offset + 3]} << 24;
    };
    peek.valid = true;
    peek.minimal_version_for_read = u32(3);
    peek.authoring_version = u32(7);
    if (bytes.size() >= 47) peek.number_of_file_structures = u32(43);
    return peek;
}

bool holdsExactGeometry(const std::vector<uint8_t>& bytes) {
    // "PRC", versions, two identifiers, the number of file structures, then
    // per file structure an identifier, a reserved word, the number of
    // offsets and the offsets; offsets 4 and 5 bound the geometry section.
    const auto u32 = [&](size_t offset) {
        return uint32_t{bytes[offset]} | uint32_t{bytes[offset + 1]} << 8 | uint32_t{bytes[offset + 2]} << 16 |
               uint32_t{bytes[offset + 3]} << 24;
    };
    if (bytes.size() < 47 || bytes[0] != 'P' || bytes[1] != 'R' || bytes[2] != 'C') return false;
    const uint32_t structures = u32(43);
    size_t at = 47;
    // An empty geometry section (type, empty base, no context, no user data)
    // deflates to about a dozen bytes; anything larger holds bodies.
    constexpr uint32_t kEmptySectionBytes = 16;
    for (uint32_t i = 0; i < structures; ++i) {
        if (at + 24 > bytes.size()) return false;
        const uint32_t offsets = u32(at + 20);
        at += 24;
        if (offsets > (bytes.size() - at) / 4) return false;
        if (offsets >= 6 && u32(at + 20) > u32(at + 16) && u32(at + 20) - u32(at + 16) > kEmptySectionBytes) return true;
        at += 4 * size_t(offsets);
    }
    return false;
}

void interpretWorkerRun(const WorkerRun& run, const WorkerLimits& limits, ModelResult& result) {
    result.seconds = run.seconds;
    if (run.end != WorkerRun::End::Exited || run.exit_status != 0) {
        result.outcome = Outcome::WorkerFailed;
        result.message = describeWorkerFailure(run, limits);
        return;
    }
    if (run.answer.empty()) {
        result.outcome = Outcome::InvalidAnswer;
        result.message = "the worker ended without an answer";
        return;
    }
    result_reader::ResultStream stream;
    try {
        stream = result_reader::readResultStream(run.answer.data(), run.answer.size());
    } catch (const result_reader::InvalidResultStream& e) {
        result.outcome = Outcome::InvalidAnswer;
        result.message = std::string("the worker's answer is not a valid result stream: ") + e.what();
        return;
    }
    switch (stream.kind) {
        case result_reader::ResultKind::ErrorRecord:
            result.outcome = Outcome::Refused;
            result.message = "the worker refused the model: \"" + stream.message + "\"";
            return;
        case result_reader::ResultKind::FailureHeader:
            switch (stream.header.status) {
                case kOutcomeNoGeometry:
                    result.outcome = Outcome::NoGeometry;
                    result.message = "the model holds no triangles to show";
                    break;
                case kOutcomeNoResult:
                    result.outcome = Outcome::OutOfMemory;
                    result.message = "the worker ran out of memory while building the mesh";
                    break;
                default:
                    result.outcome = Outcome::DecodingError;
                    result.message = "the worker could not decode the model (malformed or unsupported PRC data)";
                    break;
            }
            return;
        case result_reader::ResultKind::Success: break;
    }
    result.outcome = Outcome::Decoded;
    result.message.clear();
    result.mesh.positions = std::move(stream.positions);
    result.mesh.triangles = std::move(stream.triangles);
    result.mesh.colors = std::move(stream.colors);
    result.mesh.parts.reserve(stream.parts.size());
    for (const PartRecord& record : stream.parts) {
        ModelPart part;
        part.name = result_reader::partName(record);
        part.parent = record.parent_index;
        part.first_triangle = record.first_triangle;
        part.triangle_count = record.triangle_count;
        for (int axis = 0; axis < 3; ++axis) {
            part.box_min[axis] = record.box_min[axis];
            part.box_max[axis] = record.box_max[axis];
        }
        result.mesh.parts.push_back(std::move(part));
    }
    result.vertex_count = result.mesh.vertexCount();
    result.triangle_count = result.mesh.triangleCount();
    result.box = usedVertexBox(result.mesh);
    // The stream's copy of the file header is what the worker decoded.
    result.prc.valid = true;
    result.prc.minimal_version_for_read = stream.header.minimal_version_for_read;
    result.prc.authoring_version = stream.header.authoring_version;
    result.prc.number_of_file_structures = stream.header.number_of_file_structures;
    result.color_count = stream.header.color_count;
    result.material_count = stream.header.material_count;
    result.style_count = stream.header.style_count;
    result.exact = stream.has_optional_block &&
                   prc::exact::decodeExactSummary(stream.optional_block.data(), result.exact_summary);
}

}  // namespace extract
