#pragma once
// The tests' one builder of PRC data: bits in the format's encodings, written
// one call at a time or spelled as a layout text, and whole files laid out as
// real writers lay them out.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "prc/io/bit_reader.h"
#include "prc/io/prc_header.h"

namespace prc::test {

// The text of the runtime_error that f throws, or "" when it returns.
template <typename F>
std::string errorOf(F&& f) {
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

class PRCBitWriter {
public:
    PRCBitWriter() = default;
    // The bits of a layout text, see layout().
    explicit PRCBitWriter(std::string_view text) { layout(text); }

    void writeBit(bool bit);
    void writeBits(uint32_t value, int n);  // most significant first
    void writeCharacter(uint8_t byte) { writeBits(byte, 8); }
    void writeUnsignedInteger(uint32_t value);
    void writeInteger(int32_t value);
    // A value row when one matches, else the exponent row and the mantissa
    // bytes as literals.
    void writeDouble(double value);
    void writeString(std::string_view s);

    // Blank-separated tokens:
    //   b<bits>   the bits as spelled: b1, b0110       u<n>  UnsignedInteger
    //   i<n>      Integer                              c<n>  Character
    //   s<text>   String (s alone: the empty one)      f<x>  one Double of value x
    //   d<n>      n Doubles 0.5, 1.5, 2.5, ...
    // A u token may carry a name, u1@sons: when `counts` names it, its value is
    // written instead (a hostile file's knob).
    PRCBitWriter& layout(std::string_view text, const std::map<std::string, uint32_t>& counts = {});

    uint64_t bitCount() const { return bits_; }
    // The bytes written so far, the last one padded with zero bits.
    const std::vector<uint8_t>& bytes() const { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
    uint64_t bits_ = 0;
};

// Reads the bits of a layout (see PRCBitWriter::layout) from an exactly
// sized heap copy, so that the sanitizers see any read past them: the text of
// the failure of `read`, or "" once it has stopped exactly after the last bit.
template <typename F>
std::string readLayout(std::string_view layout, uint32_t version, F&& read) {
    const PRCBitWriter w(layout);
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[w.bytes().size()]);
    std::copy(w.bytes().begin(), w.bytes().end(), exact.get());
    PRCBitReader r(exact.get(), w.bytes().size(), version);
    const std::string error = errorOf([&] { read(r); });
    if (error.empty() && r.bitIndex() != w.bitCount())
        return "stopped at bit " + std::to_string(r.bitIndex()) + " of " + std::to_string(w.bitCount());
    return error;
}

std::vector<uint8_t> zlibCompress(const std::vector<uint8_t>& bytes);

struct PRCSection {
    std::vector<uint8_t> bytes;  // the inflated content
    bool compressed = true;      // false: `bytes` are stored as they are (not a zlib stream)

    static PRCSection of(std::string_view layout) { return {PRCBitWriter(layout).bytes(), true}; }
    static PRCSection raw(std::vector<uint8_t> bytes) { return {std::move(bytes), false}; }
};

// A file laid out as real writers do:
//   header | file structure 0 | file structure 1 | ... | model file section
// where a file structure is its head at offsets[0] followed by section k at
// offsets[k], k = 1..5 (globals, tree, tessellations, then the two geometry
// sections); a section ends where the next one begins.
struct PRCFileStructurePlan {
    FileStructureId identifier{0x11111111, 0x22222222, 0x33333333, 0x44444444};
    uint32_t authoring_version = 8137;
    bool head = true;  // "PRC", the versions and 36 bytes of identifiers at offsets[0]
    std::vector<PRCSection> sections = std::vector<PRCSection>(5);  // empty: nothing stored
    // Last word on the offsets the header lists; it must leave the same count on every call.
    std::function<void(std::vector<uint32_t>&)> edit_offsets;

    PRCFileStructurePlan& globals(PRCSection s) { return sections[0] = std::move(s), *this; }
    PRCFileStructurePlan& tree(PRCSection s) { return sections[1] = std::move(s), *this; }
    PRCFileStructurePlan& tessellation(PRCSection s) { return sections[2] = std::move(s), *this; }
};

struct PRCFileBuilder {
    uint32_t minimal_version_for_read = 8137;
    uint32_t authoring_version = 8137;
    std::vector<PRCFileStructurePlan> file_structures;
    PRCSection model_file;
    std::optional<uint32_t> model_file_start, model_file_end;  // override what the header says

    PRCFileStructurePlan& addFileStructure() { return file_structures.emplace_back(); }
    std::vector<uint8_t> build() const;
};

// A whole model in one file structure: a tree of product occurrences over
// one part, whose item (a poly-B-rep model in a set, beside an empty point
// set) draws the one tessellation, coloured red by style 0 of the globals.
struct Occurrence {
    uint32_t part_plus_one = 0;
    uint32_t prototype_plus_one = 0;
    std::vector<uint32_t> sons;  // positions, as stored
    double x = 0;                // a translation along x when not 0
    std::optional<FileStructureId> prototype_file_structure{};  // none: the same file structure
    bool external_data = false;  // four words that the decoder passes over
};

struct ModelPlan {
    // A counted list (a name in the layouts, u<n>@name) that claims this
    // many entries; see hostile_files.cpp for the names.
    std::string hostile = {};
    uint32_t hostile_count = 0;
    uint32_t triangles = 1;  // all on the one vertex triple (0,0,0) (1,0,0) (0,1,0)
    uint32_t face_style_plus_one = 0;  // the face's own style
    std::vector<Occurrence> occurrences = {{0, 0, {1}}, {1, 0, {}, 10}};  // a root, its leaf placed at x = 10
    uint32_t version = 8137;              // of the file structure, which its graphics blocks follow
    uint32_t nested_sets = 0;             // sets wrapped around the part's drawn item
    uint32_t nested_annotation_sets = 0;  // annotation sets in every list of annotations
    // The model file's roots: file structure and occurrence index + 1.
    std::vector<std::pair<FileStructureId, uint32_t>> roots = {{PRCFileStructurePlan().identifier, 1}};
};

// The globals, tree, tessellation and model file sections of a plan.
std::vector<PRCSection> modelSections(const ModelPlan& plan);
// A file of a plan, with `structures` file structures that all name the
// first one's sections.
PRCFileBuilder modelFileBuilder(const ModelPlan& plan, uint32_t structures = 1);
inline std::vector<uint8_t> modelFile(const ModelPlan& plan) { return modelFileBuilder(plan).build(); }

}  // namespace prc::test
