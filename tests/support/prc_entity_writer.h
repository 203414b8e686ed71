#pragma once
// Test-only writers of whole PRC entities, the mirror of their readers. Each
// writes every optional part somewhere, so that a reader that skips or swaps a
// field ends anywhere but at the last bit. Values are as stored (indices as
// index + 1, 0 for none).

#include <array>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "prc/entities/transformation.h"
#include "tests/support/prc_bit_writer.h"

namespace prc::test {

using Vec3 = std::array<double, 3>;

// Every type code and count goes through a named slot: type codes under the
// label their reader reports ("PRCView", "View.annotations"), counts under the
// list name and '#' ("View.annotations#"). writeTampered runs `write` with
// `value` in place of the first value of `slot`, stops right after it, so that
// a reader meets the value at the end of the data, and tells whether the slot
// was reached.
bool writeTampered(PRCBitWriter& w, const std::string& slot, uint32_t value,
                   const std::function<void(PRCBitWriter&)>& write);
void writeSlot(PRCBitWriter& w, const std::string& slot, uint32_t value, bool isInteger = false);
std::set<std::string>& slotsWritten();  // every slot name written so far

// Writes a layout spelled as blank-separated tokens: b0/b1 a bit; u<n>, i<n>,
// c<n> an UnsignedInteger, Integer or Character; d<n> n Doubles; s<text> a
// String; <slot>=<n> (=i<n> for an Integer) a slot; base a content base named
// "entity", rbase one that reuses the current name; head and rhead a drawn
// head (such a base and full or reused graphics); user empty user data;
// ref:<slot> a reference (205) to this file structure, ref+:<slot> to another
// one, topo:<slot> a reference on topology (206) without its topology part,
// topo+:<slot> with it (in another file structure).
void put(PRCBitWriter& w, uint32_t version, const std::string& layout);

// Content base: `attributes` attributes of one key per value type, a name (or,
// for nullptr, the bit that reuses the current one) and the identifiers.
void writeBase(PRCBitWriter& w, const char* name = "entity", uint32_t attributes = 0, int identifiers = 3);

// A view with annotations, a plane, scene display parameters with every light
// and a camera, and a filter of entity references.
void writeView(PRCBitWriter& w, uint32_t version);
// Linked items, leaders (no end linked, the second only, both), a markup, and
// annotation sets two deep holding an item and references.
void writeMarkups(PRCBitWriter& w, uint32_t version);

// Each kind writes its optional parts (and 13 bits of user data) when `flag`.
struct RepresentationItemFields {
    uint32_t type = 237;
    uint32_t style_plus_one = 0;
    uint32_t system_plus_one = 0, tessellation_plus_one = 0;
    bool flag = false;
    std::vector<RepresentationItemFields> items{};  // 239
    Matrix4 matrix = kIdentityMatrix;               // 240, as a general transformation
};
void writeRepresentationItem(PRCBitWriter& w, uint32_t version, const RepresentationItemFields& s);

// 702 a material; 711 a texture application naming a material.
struct MaterialFields {
    uint32_t type = 702;
    std::array<uint32_t, 4> colors{};  // ambient, diffuse, emissive, specular
    std::array<double, 5> values{0, 1, 1, 1, 1};  // shininess, then the four alphas
    uint32_t material_plus_one = 0;   // 711

    static MaterialFields withDiffuse(uint32_t d) { return {.colors = {0, d, 0, 0}}; }
};

struct StyleFields {
    double line_width = 1.0;
    bool is_material = false;
    uint32_t color_material_plus_one = 0;

    static StyleFields color(uint32_t c) { return {.color_material_plus_one = c}; }
};

// The tables below are the ones a reader keeps; every dropped table (schema,
// fonts, pictures, texture definitions of each branch, line patterns) is
// written filled. Every name in the section is a reuse bit.
struct GlobalsFields {
    std::vector<Vec3> colors{};
    std::vector<MaterialFields> materials{};
    std::vector<StyleFields> styles{};
    std::vector<RepresentationItemFields> reference_coordinate_systems{};
};
void writeGlobals(PRCBitWriter& w, uint32_t version, const GlobalsFields& s = {});

}  // namespace prc::test
