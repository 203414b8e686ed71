#include "tests/support/prc_file_builder.h"

#include <zlib.h>

#include <stdexcept>

#include "tests/support/prc_bit_writer.h"

namespace prc::test {

PRCSection PRCSection::of(const PRCBitWriter& w) { return {w.bytes(), true}; }

PRCFileStructurePlan& PRCFileStructurePlan::section(size_t k, PRCSection s) {
    if (k == 0) throw std::logic_error("sections are numbered from 1");
    if (sections.size() < k) sections.resize(k);
    sections[k - 1] = std::move(s);
    return *this;
}

std::vector<uint8_t> zlibCompress(const std::vector<uint8_t>& bytes) {
    uLongf size = compressBound(uLong(bytes.size()));
    std::vector<uint8_t> out(size);
    if (compress2(out.data(), &size, bytes.data(), uLong(bytes.size()), Z_DEFAULT_COMPRESSION) != Z_OK)
        throw std::runtime_error("compress2 failed");
    out.resize(size);
    return out;
}

namespace {

void putU32(std::vector<uint8_t>& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(uint8_t(v >> (8 * i)));
}

void putId(std::vector<uint8_t>& out, const FileStructureId& id) {
    for (uint32_t w : id) putU32(out, w);
}

std::vector<uint8_t> stored(const PRCSection& s) { return s.compressed ? zlibCompress(s.bytes) : s.bytes; }

// The bytes of one file structure (head and sections) and the natural offsets
// relative to its start.
struct Body {
    std::vector<uint8_t> bytes;
    std::vector<uint32_t> offsets;
};

Body body(const PRCFileStructurePlan& fs) {
    Body b;
    b.offsets.push_back(0);
    if (fs.head) {
        b.bytes = {'P', 'R', 'C'};
        putU32(b.bytes, fs.minimal_version_for_read);
        putU32(b.bytes, fs.authoring_version);
        b.bytes.resize(b.bytes.size() + fs.head_filler, 0);
    }
    for (const PRCSection& s : fs.sections) {
        b.offsets.push_back(uint32_t(b.bytes.size()));
        const std::vector<uint8_t> data = stored(s);
        b.bytes.insert(b.bytes.end(), data.begin(), data.end());
    }
    return b;
}

}  // namespace

std::vector<uint8_t> PRCFileBuilder::build(PRCFileLayout* layout) const {
    std::vector<Body> bodies;
    for (const PRCFileStructurePlan& fs : file_structures) bodies.push_back(body(fs));
    const std::vector<uint8_t> model = stored(model_file);

    // The header's size depends on how many offsets it lists, which the edits
    // may change; lay out twice, the second time with the edited counts.
    std::vector<size_t> counts;
    for (const Body& b : bodies) counts.push_back(b.offsets.size());
    std::vector<std::vector<uint32_t>> listed;
    std::vector<uint32_t> ends;
    uint64_t modelStart = 0;
    for (int pass = 0; pass < 2; ++pass) {
        uint64_t position = 3 + 4 + 4 + 16 + 16 + 4 + 8;
        for (size_t count : counts) position += 16 + 4 + 4 + 4 * uint64_t(count);
        listed.clear();
        ends.clear();
        for (size_t i = 0; i < bodies.size(); ++i) {
            std::vector<uint32_t> offsets;
            for (uint32_t o : bodies[i].offsets) offsets.push_back(uint32_t(position + o));
            position += bodies[i].bytes.size();
            ends.push_back(uint32_t(position));
            if (file_structures[i].edit_offsets) file_structures[i].edit_offsets(offsets);
            listed.push_back(std::move(offsets));
        }
        modelStart = position;
        std::vector<size_t> edited;
        for (const auto& o : listed) edited.push_back(o.size());
        if (pass == 1 && edited != counts) throw std::logic_error("edit_offsets gave a different count on the second pass");
        counts = edited;
    }

    std::vector<uint8_t> out = {'P', 'R', 'C'};
    putU32(out, minimal_version_for_read);
    putU32(out, authoring_version);
    putId(out, first_file_identifier);
    putId(out, second_file_identifier);
    putU32(out, uint32_t(file_structures.size()));
    for (size_t i = 0; i < file_structures.size(); ++i) {
        putId(out, file_structures[i].identifier);
        putU32(out, file_structures[i].reserved);
        putU32(out, uint32_t(listed[i].size()));
        for (uint32_t o : listed[i]) putU32(out, o);
    }
    const uint32_t modelEnd = uint32_t(modelStart + model.size());
    putU32(out, model_file_start.value_or(uint32_t(modelStart)));
    putU32(out, model_file_end.value_or(modelEnd));
    for (const Body& b : bodies) out.insert(out.end(), b.bytes.begin(), b.bytes.end());
    if (out.size() != modelStart) throw std::logic_error("PRC file layout out of step");
    out.insert(out.end(), model.begin(), model.end());
    out.insert(out.end(), trailing.begin(), trailing.end());

    if (layout) {
        layout->offsets = listed;
        layout->file_structure_ends = ends;
        layout->model_file_start = uint32_t(modelStart);
        layout->model_file_end = modelEnd;
    }
    return out;
}

}  // namespace prc::test
