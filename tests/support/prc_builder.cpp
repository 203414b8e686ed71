#include "tests/support/prc_builder.h"

#include <zlib.h>

#include <bit>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "prc/io/frequent_doubles.h"

namespace prc::test {

void PRCBitWriter::writeBit(bool bit) {
    if (bits_ % 8 == 0) bytes_.push_back(0);
    if (bit) bytes_.back() |= uint8_t(0x80 >> (bits_ % 8));
    ++bits_;
}

void PRCBitWriter::writeBits(uint32_t value, int n) {
    for (int i = n - 1; i >= 0; --i) writeBit(i < 32 && ((value >> i) & 1));
}

void PRCBitWriter::writeUnsignedInteger(uint32_t value) {
    for (; value != 0; value >>= 8) writeBit(true), writeCharacter(uint8_t(value));
    writeBit(false);
}

void PRCBitWriter::writeInteger(int32_t value) {
    // Bytes least significant first until what is left is the sign extension
    // of the last byte written; zero is the closing bit alone.
    for (bool more = value != 0; more; value >>= 8) {  // arithmetic shift
        const uint8_t byte = uint8_t(uint32_t(value));
        writeBit(true), writeCharacter(byte);
        more = (value >> 8) != ((byte & 0x80) ? -1 : 0);
    }
    writeBit(false);
}

void PRCBitWriter::writeString(std::string_view s) {
    writeBit(true), writeUnsignedInteger(uint32_t(s.size()));
    for (char c : s) writeCharacter(uint8_t(c));
}

void PRCBitWriter::writeDouble(double value) {
    const uint64_t pattern = std::bit_cast<uint64_t>(value), sign = pattern >> 63;
    const uint64_t exponent = (pattern >> 52) & 0x7FF, mantissa = pattern & ((uint64_t(1) << 52) - 1);
    // Value rows match the magnitude, a sign bit follows; zero's row is +0.0
    // alone, without one. Otherwise the first row of the exponent.
    const FrequentDoubleEntry* row = nullptr;
    for (const FrequentDoubleEntry& e : frequentDoubleTable()) {
        if (e.kind == 0 && e.value == (pattern & ~(sign << 63)) && (e.value != 0 || sign == 0)) {
            writeBits(e.code, e.bit_count);
            if (e.value != 0) writeBit(sign != 0);
            return;
        }
        if (e.kind == 1 && ((e.value >> 52) & 0x7FF) == exponent && row == nullptr) row = &e;
    }
    if (row == nullptr) throw std::logic_error("no exponent row");
    writeBits(row->code, row->bit_count);
    writeBit(sign != 0), writeBit(mantissa != 0);
    if (mantissa == 0) return;
    writeBits(uint32_t(mantissa >> 48) & 0xF, 4);
    for (int i = 5; i >= 0; --i) writeBit(true), writeCharacter(uint8_t(mantissa >> (8 * i)));
}

PRCBitWriter& PRCBitWriter::layout(std::string_view text, const std::map<std::string, uint32_t>& counts) {
    std::istringstream in{std::string(text)};
    for (std::string t; in >> t;) {
        const std::string value = t.substr(1, t.find('@') - 1);
        switch (t[0]) {
            case 'b':
                for (char c : value) writeBit(c == '1');
                break;
            case 'u': {
                const size_t at = t.find('@');
                const auto named = at == std::string::npos ? counts.end() : counts.find(t.substr(at + 1));
                writeUnsignedInteger(named != counts.end() ? named->second : uint32_t(std::stoul(value)));
                break;
            }
            case 'i': writeInteger(int32_t(std::stol(value))); break;
            case 'c': writeCharacter(uint8_t(std::stoul(value))); break;
            case 's': writeString(value); break;
            case 'f': writeDouble(std::strtod(value.c_str(), nullptr)); break;
            case 'd':
                for (long i = 0; i < std::stol(value); ++i) writeDouble(0.5 + double(i));
                break;
            default: throw std::logic_error("unknown layout token " + t);
        }
    }
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

}  // namespace

std::vector<uint8_t> PRCFileBuilder::build() const {
    // Each file structure's bytes and its offsets relative to its start.
    std::vector<std::vector<uint8_t>> bodies;
    std::vector<std::vector<uint32_t>> relative;
    for (const PRCFileStructurePlan& fs : file_structures) {
        std::vector<uint8_t>& b = bodies.emplace_back();
        relative.push_back({0});
        if (fs.head) {
            b = {'P', 'R', 'C'};
            putU32(b, fs.authoring_version), putU32(b, fs.authoring_version), b.resize(47);
        }
        for (const PRCSection& s : fs.sections) {
            relative.back().push_back(uint32_t(b.size()));
            const std::vector<uint8_t> stored = s.compressed ? zlibCompress(s.bytes) : s.bytes;
            b.insert(b.end(), stored.begin(), stored.end());
        }
    }
    // The header's size depends on how many offsets the edits leave: the
    // first pass learns it, the second lays out for real.
    std::vector<std::vector<uint32_t>> listed;
    uint64_t headerSize = 0, position = 0;
    for (int pass = 0; pass < 2; ++pass) {
        position = headerSize;
        headerSize = 3 + 4 + 4 + 16 + 16 + 4 + 8;  // magic, versions, two identifiers, count, model range
        listed.clear();
        for (size_t i = 0; i < bodies.size(); ++i) {
            std::vector<uint32_t>& o = listed.emplace_back();
            for (uint32_t r : relative[i]) o.push_back(uint32_t(position + r));
            position += bodies[i].size();
            if (file_structures[i].edit_offsets) file_structures[i].edit_offsets(o);
            headerSize += 16 + 4 + 4 + 4 * o.size();  // identifier, reserved, count, offsets
        }
    }
    const std::vector<uint8_t> model = model_file.compressed ? zlibCompress(model_file.bytes) : model_file.bytes;
    std::vector<uint8_t> out = {'P', 'R', 'C'};
    for (uint32_t v : {minimal_version_for_read, authoring_version, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u}) putU32(out, v);
    putU32(out, uint32_t(listed.size()));
    for (size_t i = 0; i < listed.size(); ++i) {
        for (uint32_t v : file_structures[i].identifier) putU32(out, v);
        putU32(out, 0), putU32(out, uint32_t(listed[i].size()));
        for (uint32_t o : listed[i]) putU32(out, o);
    }
    putU32(out, model_file_start.value_or(uint32_t(position)));
    putU32(out, model_file_end.value_or(uint32_t(position + model.size())));
    for (const std::vector<uint8_t>& b : bodies) out.insert(out.end(), b.begin(), b.end());
    if (out.size() != position) throw std::logic_error("PRC file layout out of step");
    out.insert(out.end(), model.begin(), model.end());
    return out;
}

namespace {

std::string u(uint32_t v) { return " u" + std::to_string(v); }
std::string f(double v) { return " f" + std::to_string(v); }

// Type, content base (no attributes, an empty name, identifiers for the types
// that carry them) and, for drawn entities, full graphics in a style, with an
// empty list after it above version 8137.
std::string head(uint32_t type, uint32_t version = 0, uint32_t style_plus_one = 0) {
    return u(type) + " u0@attributes b01 u0@name" + (type < 301 || type > 305 ? " b000" : "") +
           (version ? " b0 u0" + u(style_plus_one) + " c1 c0" + (version > 8137 ? " u0" : "") : "");
}

// An item's head and its indices: no coordinate system, the tessellation.
std::string item(const ModelPlan& plan, uint32_t type, uint32_t tessellation_plus_one) {
    return head(type, plan.version) + " u0" + u(tessellation_plus_one);
}

// Sets wrapped around a set of a poly-B-rep model (drawing tessellation 0)
// and an empty point set; written flat, as a set ends with its user data.
std::string drawnItem(const ModelPlan& plan) {
    std::string s;
    for (uint32_t i = 0; i < plan.nested_sets; ++i) s += item(plan, 239, 0) + " u1";
    s += item(plan, 239, 0) + " u2@children" + item(plan, 237, 1) + " b0 u0@userdata" + item(plan, 236, 0) + " u0@points";
    for (uint32_t i = 0; i <= plan.nested_sets + 1; ++i) s += " u0@userdata";
    return s;
}

std::string markups(const ModelPlan& plan) {
    const uint32_t n = plan.nested_annotation_sets;
    std::string s = " u0@linked u0@leaders u0@markups" + u(n == 0 ? 0 : 1) + "@annotations";
    for (uint32_t i = 0; i < n; ++i) s += head(505, plan.version) + u(i + 1 < n ? 1 : 0);
    for (uint32_t i = 0; i < n; ++i) s += " u0@userdata";
    return s;
}

std::string occurrence(const ModelPlan& plan, const Occurrence& o) {
    std::string s = head(310, plan.version) + u(o.part_plus_one) + u(o.prototype_plus_one);
    if (o.prototype_plus_one != 0) s += o.prototype_file_structure ? " b0" : " b1";
    if (o.prototype_plus_one != 0 && o.prototype_file_structure)
        for (uint32_t word : *o.prototype_file_structure) s += u(word);
    s += o.external_data ? " u1 b0 u1 u2 u3 u4" : " u0";
    s += u(uint32_t(o.sons.size())) + "@sons";
    for (uint32_t son : o.sons) s += u(son);
    s += " c0 b0 f1 c0 i0";  // behaviour, unit from CAD, unit 1.0, flags, load status
    // A translation as a general transformation, column by column.
    s += o.x == 0 ? " b0" : " b1 u207 f1 f0 f0 f0 f0 f1 f0 f0 f0 f0 f1 f0" + f(o.x) + " f0 f0 f1";
    return s + " u0@references" + markups(plan) + " u0@views b0 u0@filters u0@scenes u0@userdata";
}

}  // namespace

std::vector<PRCSection> modelSections(const ModelPlan& plan) {
    const std::string globals = " u0@globalschema" + head(303) + " u0@ids f0 f0 b0 u0@strings u1@colours f1 f0 f0" +
                                " u0@pictures u0@textures u0@materials u0@patterns u1@styles" + head(701) +
                                " f1 b000 u1 b0000 b0 u0@systems u0@userdata";  // style 0: colour 0
    std::string tree = " u304 u0 b00 u1@parts" + head(311, plan.version, 1) + " f0 f0 f0 f0 f0 f0 u1@items" + drawnItem(plan) +
                       markups(plan) + " u0@partviews u0@userdata" + u(uint32_t(plan.occurrences.size())) + "@occurrences";
    for (const Occurrence& o : plan.occurrences) tree += occurrence(plan, o);
    tree += head(302) + " u0 u0 u0@userdata u0@userdata";  // internal data
    // Normals recalculated, one face of triangles.
    std::string tess = " u305 u0 b00 u1@tessellations u172 b0 u9@coordinates f0 f0 f0 f1 f0 f0 f0 f1 f0 b001 c0 f0"
                       " u0@normals b0" + u(3 * plan.triangles) + "@indices";
    for (uint32_t i = 0; i < plan.triangles; ++i) tess += " u0 u3 u6";
    const std::string style = plan.face_style_plus_one ? " u1" + u(plan.face_style_plus_one) : " u0";
    tess += " u1@faces u174" + style + " u0 u0 u2 u0 u1" + u(plan.triangles) + " u0 b0" + (plan.face_style_plus_one ? " u0" : "");
    tess += " b0";  // no trailing Doubles
    std::string model = " u0@modelschema" + head(301) + " b0 f1" + u(uint32_t(plan.roots.size())) + "@roots";
    for (const auto& [identifier, occurrence_plus_one] : plan.roots) {
        for (uint32_t word : identifier) model += u(word);
        model += u(occurrence_plus_one) + " b0";
    }
    std::vector<PRCSection> sections;
    for (const std::string& layout : {globals, tree, tess, model}) {
        PRCBitWriter w;
        w.layout(layout, {{plan.hostile, plan.hostile_count}});
        // Zero bytes after a section with a hostile count: data that its list
        // reads on through, so that a reservation by the bits left is measurable.
        for (size_t i = 0; !plan.hostile.empty() && i < 4096; ++i) w.writeCharacter(0);
        sections.push_back({w.bytes(), true});
    }
    return sections;
}

PRCFileBuilder modelFileBuilder(const ModelPlan& plan, uint32_t structures) {
    std::vector<PRCSection> sections = modelSections(plan);
    PRCFileBuilder builder;
    auto offsets = std::make_shared<std::vector<uint32_t>>();
    PRCFileStructurePlan& first = builder.addFileStructure().globals(sections[0]).tree(sections[1]).tessellation(sections[2]);
    first.authoring_version = plan.version;
    first.edit_offsets = [offsets](std::vector<uint32_t>& o) { *offsets = o; };
    for (uint32_t i = 1; i < structures; ++i)
        builder.addFileStructure().edit_offsets = [offsets](std::vector<uint32_t>& o) { o = *offsets; };
    builder.model_file = sections[3];
    return builder;
}

}  // namespace prc::test
