#include "prc/entities/scene_entities.h"

#include "prc/entities/representation_item.h"
#include "tests/prc/entities/entity_test_util.h"

namespace prc::test {
namespace {

ReferenceFields badReference(uint32_t code = 206) { return {.code = code}; }

// Every kind of entity that a view reaches, each optional part present.
ViewFields fullView() {
    EntityReferenceFields topology, plain;
    topology.reference = ReferenceFields{.code = 206, .same_file_structure = false, .indices = {1, 2}};
    plain.reference.emplace();
    SceneDisplayParametersFields scene{.lights = {{.type = 731}, {.type = 732}, {.type = 733}, {.type = 734}},
                                       .camera = CameraFields{},
                                       .rotation_center = Vec3{1, 2, 3},
                                       .clipping_planes = {{}, {.base_information = true}},
                                       .style_pairs = {{1, 2}, {3, 4}}};
    return {.head = {.graphics = {.style_plus_one = 3}},
            .annotations = {{}, {}},
            .plane = {.transformation = {.behaviour = 0x03}},
            .scene = scene,
            .linked_items = {{}},
            .filters = {{.layers = {1, 2, 3}, .references = {topology, {}, plain}}}};
}

MarkupsFields fullMarkups() {
    AnnotationFields reference{.type = 506, .linked_items = {{}, {}}};
    AnnotationFields set = nestedAnnotationSets(3);
    set.children.push_back(reference);
    return {
        .linked_items = {{},
                         {.first = ReferenceFields{}, .second = ReferenceFields{.code = 206, .has_topology = false}}},
        .leaders = {{}, {.first = ReferenceFields{}, .second = ReferenceFields{}}},
        .markups = {{.linked_items = {{}, {}}, .leaders = {{}}}},
        .annotations = {{}, set, reference}};
}

TEST(SceneEntities, WholeEntitiesAreReadExactly) {
    for (uint32_t version : {kOldVersion, kNewVersion}) {  // without and with the count after graphics
        PRCBitWriter view, markups;
        writeView(view, version, fullView());
        expectReadsExactly(view, version, readView);
        writeMarkups(markups, version, fullMarkups());
        expectReadsExactly(markups, version, readMarkups);
    }
}

TEST(SceneEntities, ViewGraphicsBecomeTheCurrentGraphics) {
    // An entity after a view that reuses the current graphics gets the view's style.
    PRCBitWriter w;
    writeView(w, kOldVersion, {.head = {.graphics = {.layer_plus_one = 2, .style_plus_one = 5}}});
    writeRepresentationItem(w, kOldVersion, {.graphics = {.same_as_current = true}});
    expectReadsExactly(w, kOldVersion, [](PRCBitReader& r) {
        readView(r);
        EXPECT_EQ(r.current_graphics.layer_index, 1u);
        EXPECT_EQ(readRepresentationItem(r).line_style_index, 4u);
    });
}

TEST(SceneEntities, LeaderLinksAreIndependent) {
    // Only the second end linked: one reference, checked under its own label.
    PRCBitWriter second, first;
    writeLeader(second, kOldVersion, {.second = badReference()});
    EXPECT_EQ(failureOf(second, kOldVersion, readLeader),
              "unexpected type for Leader.second_linked_item: expected 205, got 206");
    writeLeader(first, kOldVersion, {.first = badReference(), .second = ReferenceFields{}});
    EXPECT_EQ(failureOf(first, kOldVersion, readLeader),
              "unexpected type for Leader.first_linked_item: expected 205, got 206");
}

TEST(SceneEntities, AnnotationSets) {
    AnnotationFields nested = nestedAnnotationSets(2);  // set > set > item
    nested.children[0].children[0].markup = badReference(204);
    PRCBitWriter w;
    writeAnnotationEntity(w, kOldVersion, nested);
    EXPECT_EQ(failureOf(w, kOldVersion, readAnnotationEntity),
              "unexpected type for AnnotationItem.markup: expected 205, got 204");

    PRCBitWriter unknown;
    writeAnnotationEntity(unknown, kOldVersion, {.type = 507});
    EXPECT_EQ(failureOf(unknown, kOldVersion, readAnnotationEntity), "readAnnotationEntity: unknown type 507");

    // kMaxAnnotationDepth levels in all (sets and the innermost item) pass.
    PRCBitWriter deepest, beyond, chain;
    writeAnnotationEntity(deepest, kOldVersion, nestedAnnotationSets(kMaxAnnotationDepth - 1));
    expectReadsExactly(deepest, kOldVersion, readAnnotationEntity);
    const std::string tooDeep = "readAnnotationEntity: annotation sets nested too deeply";
    writeAnnotationEntity(beyond, kOldVersion, nestedAnnotationSets(kMaxAnnotationDepth));
    EXPECT_EQ(failureOf(beyond, kOldVersion, readAnnotationEntity), tooDeep);
    for (int i = 0; i < 100000; ++i) {  // far deeper than any stack could follow
        chain.writeUnsignedInteger(505);
        writeContentBase(chain, 505, std::nullopt);
        writeGraphics(chain, kOldVersion, {.same_as_current = true});
        chain.writeUnsignedInteger(1);
    }
    EXPECT_EQ(failureOf(chain, kOldVersion, readAnnotationEntity), tooDeep);
}

TEST(SceneEntities, VersionDependentFields) {
    // A directional light has its Double from 8030 on; scene display
    // parameters end with a Boolean only above 8136.
    const struct {
        std::function<void(PRCBitWriter&, uint32_t)> write;
        ReadFn read;
        uint32_t shorter, longer;
    } cases[] = {{[](PRCBitWriter& w, uint32_t v) { writeLight(w, v, {.type = 733}); }, readLight, 8029, 8030},
                 {[](PRCBitWriter& w, uint32_t v) { writeSceneDisplayParameters(w, v); }, readSceneDisplayParameters,
                  8136, 8137}};
    for (const auto& c : cases) {
        PRCBitWriter shortForm, longForm;
        c.write(shortForm, c.shorter);
        c.write(longForm, c.longer);
        EXPECT_LT(shortForm.bitCount(), longForm.bitCount());
        expectReadsExactly(shortForm, c.shorter, c.read);
        expectReadsExactly(longForm, c.longer, c.read);
    }
}

TEST(SceneEntities, FailuresNameTheirEntity) {
    using WriteFn = std::function<void(PRCBitWriter&)>;
    const uint32_t v = kOldVersion;
    const struct {
        WriteFn write;
        ReadFn read;
        std::string message;
    } cases[] = {
        {[&](PRCBitWriter& w) { writeMarkupLinkedItem(w, v, {.type = 205}); }, readMarkupLinkedItem,
         "unexpected type for PRCMarkupLinkedItem: expected 204, got 205"},
        {[&](PRCBitWriter& w) { writeMarkupLinkedItem(w, v, {.second = badReference(207)}); }, readMarkupLinkedItem,
         "ReferenceData: unknown type"},
        {[&](PRCBitWriter& w) { writeLeader(w, v, {.type = 502}); }, readLeader,
         "unexpected type for PRCLeader: expected 503, got 502"},
        {[&](PRCBitWriter& w) { writeMarkup(w, v, {.type = 503}); }, readMarkup,
         "unexpected type for PRCMarkup: expected 502, got 503"},
        {[&](PRCBitWriter& w) { writeMarkup(w, v, {.linked_items = {badReference()}}); }, readMarkup,
         "unexpected type for Markup.linked_items: expected 205, got 206"},
        {[&](PRCBitWriter& w) { writeMarkup(w, v, {.leaders = {badReference()}}); }, readMarkup,
         "unexpected type for Markup.leaders: expected 205, got 206"},
        {[&](PRCBitWriter& w) {
             writeAnnotationEntity(w, v, {.type = 506, .linked_items = {{}, badReference()}});
         },
         readAnnotationEntity, "unexpected type for AnnotationReference.linked_items: expected 205, got 206"},
        {[&](PRCBitWriter& w) { writeView(w, v, {.type = 500}); }, readView,
         "unexpected type for PRCView: expected 501, got 500"},
        {[&](PRCBitWriter& w) { writeView(w, v, {.annotations = {badReference()}}); }, readView,
         "unexpected type for View.annotations: expected 205, got 206"},
        {[&](PRCBitWriter& w) { writeView(w, v, {.linked_items = {badReference()}}); }, readView,
         "unexpected type for View.linked_items: expected 205, got 206"},
        {[&](PRCBitWriter& w) { writeView(w, v, {.plane = {.type = 85}}); }, readView,
         "unexpected type for PRCSurfacePlane: expected 86, got 85"},
        {[&](PRCBitWriter& w) { writeFilter(w, v, {.type = 321}); }, readFilter,
         "unexpected type for PRCFilter: expected 320, got 321"},
        {[&](PRCBitWriter& w) { writeEntityReference(w, v, {.type = 204}); }, readEntityReference,
         "unexpected type for PRCEntityReference: expected 203, got 204"},
        {[&](PRCBitWriter& w) { writeEntityReference(w, v, {.reference = badReference(207)}); }, readEntityReference,
         "readEntityReference: unknown reference type"},
        {[&](PRCBitWriter& w) { writeSceneDisplayParameters(w, v, {.type = 740}); }, readSceneDisplayParameters,
         "unexpected type for PRCSceneDisplayParameters: expected 741, got 740"},
        {[&](PRCBitWriter& w) { writeLight(w, v, {.type = 730}); }, readLight, "readLight: tipo inatteso 730"},
        {[&](PRCBitWriter& w) { writeLight(w, v, {.type = 735}); }, readLight, "readLight: tipo inatteso 735"},
        {[&](PRCBitWriter& w) { writeCamera(w, {.type = 743}); }, readCamera,
         "unexpected type for PRCCamera: expected 742, got 743"},
    };
    for (const auto& c : cases) {
        PRCBitWriter w;
        c.write(w);
        EXPECT_EQ(failureOf(w, v, c.read), c.message);
    }
}

TEST(SceneEntities, HostileCountsRunOutOfData) {
    const uint32_t v = kNewVersion;
    auto view = [&](PRCBitWriter& w) { writeView(w, v, fullView()); };
    auto markups = [&](PRCBitWriter& w) { writeMarkups(w, v, fullMarkups()); };
    for (const char* list :
         {"View.annotations", "View.linked_items", "View.filters", "Filter.layers", "Filter.entity_references",
          "SceneDisplayParameters.lights", "SceneDisplayParameters.clipping_planes",
          "SceneDisplayParameters.style_pairs", "ReferenceData.indices", "Attributes"})
        expectHostileCountFails(list, view, v, readView);
    for (const char* list :
         {"Markups.linked_items", "Markups.leaders", "Markups.markups", "Markups.annotations", "Markup.linked_items",
          "Markup.leaders", "AnnotationSet.children", "AnnotationReference.linked_items"})
        expectHostileCountFails(list, markups, v, readMarkups);
}

}  // namespace
}  // namespace prc::test
