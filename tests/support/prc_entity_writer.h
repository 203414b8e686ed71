#pragma once
// Test-only writers of whole PRC entities (transformations, planes, scene
// entities, representation items, globals sections), the mirror of their
// readers. Every record of fields defaults to a small well-formed entity;
// values are as stored in the file (indices as index + 1, 0 for none).

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "prc/entities/transformation.h"
#include "prc/io/prc_header.h"
#include "tests/support/prc_bit_writer.h"

namespace prc::test {

using Vec3 = std::array<double, 3>;

// --- Hostile counts --------------------------------------------------------

// While one is alive, the writers put `value` in place of the size of the
// list named `list` ("View.annotations", "Globals.colors", "Set.items"...: the
// entity, a dot and the field; "Attributes" for the attribute count) and stop
// right after that count by throwing HostileCountWritten, so that a reader
// meets the count at the very end of the data. One at a time.
struct HostileCountWritten {};
class HostileCount {
public:
    explicit HostileCount(std::string list, uint32_t value = 4000000000u);
    ~HostileCount();
    HostileCount(const HostileCount&) = delete;
    HostileCount& operator=(const HostileCount&) = delete;
    bool used() const;  // the list was reached and its count written
};

// --- Framing -------------------------------------------------------------

// Graphics block as stored (the count and pairs after it follow the version).
struct GraphicsFields {
    bool same_as_current = false;
    uint32_t layer_plus_one = 0;
    uint32_t style_plus_one = 0;
    uint16_t behaviour = 1;
    std::vector<std::pair<uint32_t, uint32_t>> pairs{};
};
void writeGraphics(PRCBitWriter& w, uint32_t version, const GraphicsFields& g);

// The name of a content base: a string, or nullopt for the reuse bit.
using NameField = std::optional<std::string>;
void writeContentBase(PRCBitWriter& w, uint32_t type, const NameField& name);

// One attribute key: title by string (or by number when title_number is set),
// a value type and the values that type carries.
struct AttributeKeyFields {
    std::string title = "key";
    std::optional<uint32_t> title_number{};
    uint32_t value_type = 0;  // 0 null, 1 Integer, 2 Double, 3 time, 4 String, 5 Integer + UnsignedInteger
    int32_t integer = 0;
    double number = 0.0;
    std::string text{};
    uint32_t unsigned_value = 0;
};
struct AttributeFields {
    uint32_t type = 201;
    std::string title = "attribute";
    std::optional<uint32_t> title_number{};
    std::vector<AttributeKeyFields> keys{};
};
void writeAttributes(PRCBitWriter& w, const std::vector<AttributeFields>& attributes);
// A content base that carries attributes.
void writeContentBase(PRCBitWriter& w, uint32_t type, const NameField& name,
                      const std::vector<AttributeFields>& attributes);

// Both reference forms. code 205: target type, same-file-structure bit (the
// file structure's identifier when clear), unique identifier. code 206: target
// type, has_topology bit, and only when it is set: same-file-structure bit,
// identifier, two values and the index list.
struct ReferenceFields {
    uint32_t code = 205;
    uint32_t target_type = 0;
    bool same_file_structure = true;
    FileStructureId file_structure{};
    uint32_t unique_identifier = 0;
    bool has_topology = true;
    std::array<uint32_t, 2> topology_values{};
    std::vector<uint32_t> indices{};
};
void writeReferenceData(PRCBitWriter& w, const ReferenceFields& ref);  // code and body
inline void writeReferenceOnPRCBase(PRCBitWriter& w, const ReferenceFields& ref = {}) { writeReferenceData(w, ref); }

// --- Transformations and planes -------------------------------------------

// Fields are written when the behaviour bit calls for them.
struct CartesianFields {
    uint8_t behaviour = 0;
    Vec3 origin{0, 0, 0};
    Vec3 x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1};  // z only with 0x20
    Vec3 scale{1, 1, 1};
    double uniform_scale = 1.0;
    std::array<double, 4> homogeneous{0, 0, 0, 1};
};
void writeCartesianLayout(PRCBitWriter& w, const CartesianFields& t);          // behaviour byte and data, no code
void writeCartesianTransformation(PRCBitWriter& w, const CartesianFields& t);  // code 202 and the layout
// Code 207 and the matrix (row-major) written column after column.
void writeGeneralTransformation(PRCBitWriter& w, const Matrix4& m);

struct SurfacePlaneFields {
    uint32_t type = 86;
    bool base_information = false;
    NameField name = std::string("plane");      // with base information
    std::vector<AttributeFields> attributes{};  // with base information
    CartesianFields transformation{};
};
void writeSurfacePlane(PRCBitWriter& w, const SurfacePlaneFields& p = {});

// --- Scene entities -------------------------------------------------------

// The head of a drawn entity: content base and graphics.
struct DrawnHead {
    NameField name = std::string("entity");
    GraphicsFields graphics{};
};

struct MarkupLinkedItemFields {
    uint32_t type = 204;
    DrawnHead head{};
    std::optional<ReferenceFields> first{}, second{};
};
void writeMarkupLinkedItem(PRCBitWriter& w, uint32_t version, const MarkupLinkedItemFields& s = {});

struct LeaderFields {
    uint32_t type = 503;
    DrawnHead head{};
    std::optional<ReferenceFields> first{}, second{};
};
void writeLeader(PRCBitWriter& w, uint32_t version, const LeaderFields& s = {});

struct MarkupFields {
    uint32_t type = 502;
    DrawnHead head{};
    std::vector<ReferenceFields> linked_items{}, leaders{};
};
void writeMarkup(PRCBitWriter& w, uint32_t version, const MarkupFields& s = {});

// 504 item (one markup reference), 505 set (children), 506 reference (linked items).
struct AnnotationFields {
    uint32_t type = 504;
    DrawnHead head{};
    ReferenceFields markup{};
    std::vector<AnnotationFields> children{};
    std::vector<ReferenceFields> linked_items{};
};
void writeAnnotationEntity(PRCBitWriter& w, uint32_t version, const AnnotationFields& s = {});
// depth levels of annotation sets, the innermost holding one item.
AnnotationFields nestedAnnotationSets(int depth);

struct MarkupsFields {
    std::vector<MarkupLinkedItemFields> linked_items{};
    std::vector<LeaderFields> leaders{};
    std::vector<MarkupFields> markups{};
    std::vector<AnnotationFields> annotations{};
};
void writeMarkups(PRCBitWriter& w, uint32_t version, const MarkupsFields& s = {});

struct EntityReferenceFields {
    uint32_t type = 203;
    DrawnHead head{};
    std::optional<ReferenceFields> reference{};
};
void writeEntityReference(PRCBitWriter& w, uint32_t version, const EntityReferenceFields& s = {});

struct FilterFields {
    uint32_t type = 320;
    NameField name = std::string("filter");
    std::vector<uint32_t> layers{};
    std::vector<EntityReferenceFields> references{};
};
void writeFilter(PRCBitWriter& w, uint32_t version, const FilterFields& s = {});

// 731 ambient, 732 point, 733 directional (its Double only from version
// 8030), 734 spot.
struct LightFields {
    uint32_t type = 731;
    NameField name = std::string("light");
};
void writeLight(PRCBitWriter& w, uint32_t version, const LightFields& s = {});

struct CameraFields {
    uint32_t type = 742;
    NameField name = std::string("camera");
};
void writeCamera(PRCBitWriter& w, const CameraFields& s = {});

// The final Boolean is written only above version 8136.
struct SceneDisplayParametersFields {
    uint32_t type = 741;
    NameField name = std::string("scene");
    std::vector<LightFields> lights{};
    std::optional<CameraFields> camera{};
    std::optional<Vec3> rotation_center{};
    std::vector<SurfacePlaneFields> clipping_planes{};
    std::vector<std::pair<uint32_t, uint32_t>> style_pairs{};
};
void writeSceneDisplayParameters(PRCBitWriter& w, uint32_t version, const SceneDisplayParametersFields& s = {});

struct ViewFields {
    uint32_t type = 501;
    DrawnHead head{};
    std::vector<ReferenceFields> annotations{};
    SurfacePlaneFields plane{};
    std::optional<SceneDisplayParametersFields> scene{};
    std::vector<ReferenceFields> linked_items{};
    std::vector<FilterFields> filters{};
};
void writeView(PRCBitWriter& w, uint32_t version, const ViewFields& s = {});

// --- Representation items -------------------------------------------------

// type 0 writes the code alone. The body fields used depend on the type:
// 232 flag (has_brep_data) and is_closed; 233 and 235 flag (identifiers
// present); 234 flag (has_origin); 236 points; 237 is_closed; 239 items;
// 240 the transformation (general when `general` is set, else cartesian).
struct RepresentationItemFields {
    uint32_t type = 237;
    NameField name = std::string("item");
    GraphicsFields graphics{};
    uint32_t coordinate_system_plus_one = 0;
    uint32_t tessellation_plus_one = 0;
    bool flag = false;
    bool is_closed = true;
    uint32_t points = 0;
    std::vector<RepresentationItemFields> items{};
    CartesianFields cartesian{};
    std::optional<Matrix4> general{};
    uint32_t user_data_bits = 0;

    static RepresentationItemFields set(std::vector<RepresentationItemFields> children);
    static RepresentationItemFields coordinateSystem(const CartesianFields& t);
    static RepresentationItemFields coordinateSystem(const Matrix4& m);
};
void writeRepresentationItem(PRCBitWriter& w, uint32_t version, const RepresentationItemFields& s = {});
// depth levels of sets, the innermost holding one poly-B-rep model.
RepresentationItemFields nestedSets(int depth);

// --- Globals section ------------------------------------------------------

// Type 702 is a material (colour indices and the five Doubles); 711 a texture
// application whose first value names a material (index + 1).
struct MaterialFields {
    uint32_t type = 702;
    NameField name = std::string("material");
    uint32_t ambient = 0, diffuse = 0, emissive = 0, specular = 0;
    double shininess = 0.0;
    double ambient_alpha = 1.0, diffuse_alpha = 1.0, emissive_alpha = 1.0, specular_alpha = 1.0;
    uint32_t material_plus_one = 0;                // 711
    std::array<uint32_t, 3> application_values{};  // 711: the three values after it

    static MaterialFields withDiffuse(uint32_t diffuse_plus_one);
    static MaterialFields textureApplication(uint32_t material_plus_one);
};
void writeMaterial(PRCBitWriter& w, const MaterialFields& s);

struct StyleFields {
    uint32_t type = 701;
    NameField name = std::string("style");
    double line_width = 1.0;
    bool line_pattern_bit = false;
    uint32_t line_pattern = 0;
    bool is_material = false;
    uint32_t color_material_plus_one = 0;
    std::optional<uint8_t> transparency{};
    std::array<std::optional<uint8_t>, 3> additional{};

    static StyleFields color(uint32_t color_plus_one);
    static StyleFields material(uint32_t material_plus_one);
};
void writeStyle(PRCBitWriter& w, const StyleFields& s);

struct PictureFields {
    uint32_t type = 703;
    NameField name = std::string("picture");
    int32_t format = 0;
    std::array<uint32_t, 3> values{};
};

struct TextureTransformationFields {
    uint32_t type = 713;
    bool first = false, second = false;
    std::optional<uint8_t> behaviour{};  // with the Doubles its bits call for
};

struct TextureDefinitionFields {
    uint32_t type = 712;
    NameField name = std::string("texture");
    uint32_t picture_plus_one = 0;
    uint8_t dimension = 2;
    int32_t mapping_operator = 0;  // 3 is refused by the reader
    uint32_t mapping_value = 0;
    std::vector<double> doubles{};
    std::vector<uint8_t> bytes{};
    int32_t mapping_type = 0;            // 3: four Doubles follow
    std::array<int32_t, 2> functions{};  // each non-zero one is followed by another Integer
    uint8_t flags = 0;                   // 0x02: an Integer and a Double follow
    std::array<int32_t, 3> wrapping{};   // as many as the dimension calls for
    std::optional<TextureTransformationFields> transformation{};
};

struct LinePatternFields {
    uint32_t type = 721;
    NameField name = std::string("pattern");
    std::vector<double> lengths{1.0, 0.5};
};

struct FontFields {
    std::string family = "Helvetica";
    uint32_t value = 0;
    std::vector<std::pair<uint32_t, uint8_t>> sizes{};
};

struct GlobalsFields {
    std::vector<std::pair<uint32_t, std::vector<uint32_t>>> schema{};
    uint32_t type = 303;
    NameField name = std::string();
    std::vector<FileStructureId> referenced_file_structures{};
    double chord_height_ratio = 0.0, angle = 0.0;
    std::string default_font = "";
    std::vector<FontFields> fonts{};
    std::vector<Vec3> colors{};
    std::vector<PictureFields> pictures{};
    std::vector<TextureDefinitionFields> texture_definitions{};
    std::vector<MaterialFields> materials{};
    std::vector<LinePatternFields> line_patterns{};
    std::vector<StyleFields> styles{};
    uint32_t fill_patterns = 0;  // only the count is written
    std::vector<RepresentationItemFields> reference_coordinate_systems{};
    uint32_t user_data_bits = 0;
};
void writeGlobals(PRCBitWriter& w, uint32_t version, const GlobalsFields& s = {});

// Earlier names of three of the records above, until their last callers move.
using GlobalsSpec = GlobalsFields;
using MaterialSpec = MaterialFields;
using StyleSpec = StyleFields;

}  // namespace prc::test
