// The exact decoder on scenes that Asymptote wrote as exact geometry only
// (tests/data/exact: each .prc beside the .asy it came from), checked
// against what the sources say: surfaces, corners, closedness, pens and
// placements. Then the faces it must report instead of drawing, and a table
// of hostile geometry sections.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include "meshdrone/meshdrone.h"
#include "model/exact_decode.h"
#include "prc/exact/exact_reading.h"
#include "prc/exact/face_tessellation.h"
#include "prc/exact/surface_evaluation.h"
#include "tests/support/prc_builder.h"

namespace {

using prc::test::PRCBitWriter;

std::vector<uint8_t> readData(const std::string& name) {
    std::ifstream in(std::string(MESHDRONE_TEST_DATA) + "/exact/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct Decoded {
    DecodedModel model{};
    prc::exact::ExactSummary summary;
    bool ok = false;
    double diagonal = 0;
    std::array<double, 3> vertex(uint32_t i) const {
        return {model.positions[3 * i], model.positions[3 * i + 1], model.positions[3 * i + 2]};
    }
    ~Decoded() {
        std::free(model.positions), std::free(model.triangles), std::free(model.colors), std::free(model.part_records);
    }
};

void decode(const std::vector<uint8_t>& bytes, Decoded& d) {
    d.ok = model::decodeExactModel(bytes.data(), bytes.size(), &d.model, &d.summary);
    if (!d.ok) return;
    std::array<double, 3> lo{1e30, 1e30, 1e30}, hi{-1e30, -1e30, -1e30};
    for (uint32_t i = 0; i < d.model.vertex_count; ++i)
        for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], d.vertex(i)[a]), hi[a] = std::max(hi[a], d.vertex(i)[a]);
    d.diagonal = std::hypot(hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]);
}

// Asymptote's default compression (High, 0.01) is stored as a body
// tolerance of 2.8346456 x 0.01 (a millimetre in big points); control points
// move in steps of a fifth of it, so they lie within one step of the shape.
constexpr double kCompressionStep = 0.2 * 2.8346456 * 0.01;

const char* const kScenes[] = {"sphere.prc",   "cylinder.prc",       "cone.prc",   "torus.prc",   "disc.prc",
                               "function.prc", "function-nurbs.prc", "closed.prc", "colours.prc", "group.prc"};

TEST(ExactScenes, TheWorkerFindsNoTriangleTheExactDecoderDrawsEveryFace) {
    for (const char* name : kScenes) {
        SCOPED_TRACE(name);
        const std::vector<uint8_t> bytes = readData(name);
        DecodedModel worker{};
        EXPECT_FALSE(decodePrcModel(bytes.data(), bytes.size(), &worker));
        EXPECT_EQ(worker.outcome, uint32_t(kOutcomeNoGeometry));
        Decoded d;
        decode(bytes, d);
        ASSERT_TRUE(d.ok);
        EXPECT_GT(d.summary.faces_tessellated, 0u);
        EXPECT_EQ(d.summary.skipped_total, 0u);
        EXPECT_TRUE(d.model.optional_block_present);
    }
}

// Every vertex lies on the surface the source describes, within `vertexSlack`
// (what the writer's own Bezier fit of the shape is off by); every edge
// midpoint and centroid within the chord tolerance more, and some within a
// tenth of it less: no face is drawn far finer than asked.
TEST(ExactScenes, VerticesAndChordsLieOnTheSourcesSurfaces) {
    using Point = std::array<double, 3>;
    struct Row {
        const char* file;
        std::function<double(const Point&)> distance;  // signed distance from the surface, near it
        double vertexSlack;
        bool curved = true;  // chords can leave it
    };
    const Row rows[] = {
        {"sphere.prc", [](const Point& p) { return std::hypot(p[0], p[1], p[2]) - 1; }, 1e-6},
        {"cylinder.prc", [](const Point& p) { return std::hypot(p[0], p[1]) - 1; }, 1e-6},
        {"torus.prc", [](const Point& p) { return std::hypot(std::hypot(p[0], p[1]) - 2, p[2]) - 0.5; },
         kCompressionStep},
        {"cone.prc", [](const Point& p) { return std::hypot(p[0], p[1]) - (1 - p[2] / 2); }, kCompressionStep},
        {"disc.prc", [](const Point& p) { return std::abs(p[2]) + std::max(0.0, std::hypot(p[0], p[1]) - 1); }, 1e-6,
         false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        Decoded d;
        decode(readData(row.file), d);
        ASSERT_TRUE(d.ok);
        const double tolerance = model::kRelativeChordTolerance * d.diagonal;
        double worstVertex = 0, worstChord = 0;
        for (uint32_t t = 0; t < d.model.triangle_count; ++t) {
            const Point a = d.vertex(d.model.triangles[3 * t]), b = d.vertex(d.model.triangles[3 * t + 1]),
                        c = d.vertex(d.model.triangles[3 * t + 2]);
            for (const Point& v : {a, b, c}) worstVertex = std::max(worstVertex, std::abs(row.distance(v)));
            for (const auto& [p, q] : {std::pair{a, b}, std::pair{b, c}, std::pair{c, a}})
                worstChord = std::max(worstChord, std::abs(row.distance({(p[0] + q[0]) / 2, (p[1] + q[1]) / 2,
                                                                           (p[2] + q[2]) / 2})));
        }
        EXPECT_LE(worstVertex, row.vertexSlack);
        EXPECT_LE(worstChord, tolerance + row.vertexSlack);
        if (row.curved) {
            EXPECT_GE(worstChord, tolerance / 10);
        }
    }
}

// The saddle z = x y over [-1, 1]^2 in 4 x 4 patches: every patch corner (the
// grid points of the source) is a vertex, on the function, in the
// compressed form (steps quantised to a fifth of the body's tolerance) and
// in the NURBS form alike.
TEST(ExactScenes, PatchCornersAreTheSourcesGridPoints) {
    for (const auto& [file, slack] : {std::pair{"function.prc", kCompressionStep}, std::pair{"function-nurbs.prc", 1e-6}}) {
        SCOPED_TRACE(file);
        Decoded d;
        decode(readData(file), d);
        ASSERT_TRUE(d.ok);
        for (int i = 0; i <= 4; ++i)
            for (int j = 0; j <= 4; ++j) {
                const double x = -1 + 0.5 * i, y = -1 + 0.5 * j;
                double nearest = 1e30;
                for (uint32_t v = 0; v < d.model.vertex_count; ++v) {
                    const auto p = d.vertex(v);
                    nearest = std::min(nearest, std::hypot(p[0] - x, p[1] - y, p[2] - x * y));
                }
                EXPECT_LE(nearest, slack) << "corner " << x << ", " << y;
            }
    }
}

// Closed shapes come out closed: with vertices welded by position, every
// edge is used by two triangles, once each way (consistent winding), and
// the enclosed volume is the source's. The writer quantises each compressed
// patch on its own, so patches' shared edges only meet once stitched. The
// volume's sign says which side the faces show: the compressed patches carry
// theirs; the writer's NURBS sphere leaves it unstated (2) and is
// parameterised inward.
TEST(ExactScenes, ClosedShapesAreClosedAndConsistentlyWound) {
    const double pi = 3.14159265358979;
    for (const auto& [file, volume] : {std::pair{"sphere.prc", -4 * pi / 3}, std::pair{"closed.prc", 4 * pi / 3},
                                       std::pair{"torus.prc", 2 * pi * pi * 2 * 0.25}}) {
        SCOPED_TRACE(file);
        const double weld = 1e-5;
        Decoded d;
        decode(readData(file), d);
        ASSERT_TRUE(d.ok);
        std::map<std::array<long long, 3>, std::vector<uint32_t>> cells;  // cell -> vertices that stand for others
        std::vector<uint32_t> id(d.model.vertex_count);
        for (uint32_t v = 0; v < d.model.vertex_count; ++v) {
            const auto p = d.vertex(v);
            std::array<long long, 3> cell;
            for (int a = 0; a < 3; ++a) cell[a] = std::llround(std::floor(p[a] / weld));
            id[v] = v;
            for (int n = 0; n < 27 && id[v] == v; ++n)
                for (uint32_t other : cells[{cell[0] + n % 3 - 1, cell[1] + n / 3 % 3 - 1, cell[2] + n / 9 - 1}]) {
                    const auto q = d.vertex(other);
                    if (std::hypot(p[0] - q[0], p[1] - q[1], p[2] - q[2]) <= weld) id[v] = other;
                }
            if (id[v] == v) cells[cell].push_back(v);
        }
        std::map<std::pair<uint32_t, uint32_t>, int> directed;
        double enclosed = 0;
        for (uint32_t t = 0; t < d.model.triangle_count; ++t) {
            const uint32_t* c = &d.model.triangles[3 * t];
            for (int k = 0; k < 3; ++k) directed[{id[c[k]], id[c[(k + 1) % 3]]}] += 1;
            const auto a = d.vertex(c[0]), b = d.vertex(c[1]), e = d.vertex(c[2]);
            enclosed += (a[0] * (b[1] * e[2] - b[2] * e[1]) - a[1] * (b[0] * e[2] - b[2] * e[0]) +
                         a[2] * (b[0] * e[1] - b[1] * e[0])) / 6;
        }
        int open = 0;
        for (const auto& [edge, uses] : directed)
            if (edge.first != edge.second && (uses != 1 || directed.count({edge.second, edge.first}) == 0)) ++open;
        EXPECT_EQ(open, 0);
        // Chords cut inside curved surfaces: the volume falls short by a few percent at most.
        EXPECT_NEAR(enclosed, volume, 0.05 * std::abs(volume));
    }
}

// Vertex colours are the pens of the source, nothing else (no white of a
// style that did not resolve); a group keeps its name and its transform.
TEST(ExactScenes, ColoursAreThePensAndGroupsArePlaced) {
    using Rgb = std::array<uint8_t, 3>;
    const Rgb red{255, 0, 0}, green{0, 255, 0}, blue{0, 0, 255}, yellow{255, 255, 0}, magenta{255, 0, 255};
    for (const auto& [file, pens] : {std::pair{"colours.prc", std::set<Rgb>{red, green, blue, yellow}},
                                     std::pair{"group.prc", std::set<Rgb>{red, green, magenta}}}) {
        Decoded d;
        decode(readData(file), d);
        ASSERT_TRUE(d.ok);
        std::set<Rgb> seen;
        for (uint32_t v = 0; v < d.model.vertex_count; ++v)
            seen.insert({d.model.colors[3 * v], d.model.colors[3 * v + 1], d.model.colors[3 * v + 2]});
        EXPECT_EQ(seen, pens) << file;
        if (std::string(file) != "group.prc") continue;
        // shift(5, 0, 0) * rotate(90, X) takes the sphere's centre (0, 0, 2) to (5, -2, 0).
        double lo[3] = {1e30, 1e30, 1e30}, hi[3] = {-1e30, -1e30, -1e30};
        for (uint32_t v = 0; v < d.model.vertex_count; ++v)
            if (Rgb{d.model.colors[3 * v], d.model.colors[3 * v + 1], d.model.colors[3 * v + 2]} == red)
                for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], d.vertex(v)[a]), hi[a] = std::max(hi[a], d.vertex(v)[a]);
        const double centre[3] = {5, -2, 0};
        for (int a = 0; a < 3; ++a) {
            EXPECT_NEAR((lo[a] + hi[a]) / 2, centre[a], 1e-3);
            EXPECT_NEAR(hi[a] - lo[a], 2, 1e-3);
        }
        ASSERT_EQ(d.model.part_count, 2u);
        EXPECT_STREQ(d.model.part_records[1].name, "pair");
    }
}

// --- Hand-built geometry sections -----------------------------------------

void geometryHead(PRCBitWriter& w, uint32_t contexts) {
    w.writeUnsignedInteger(prc::exact::kFileStructureGeometry);
    w.layout("u0 b00");
    w.writeUnsignedInteger(contexts);
}

void contextHead(PRCBitWriter& w, uint32_t bodies) {
    w.writeUnsignedInteger(prc::exact::kTopoContext);
    w.writeUnsignedInteger(0);  // attributes
    w.layout("b00");
    w.writeCharacter(0);
    w.writeDouble(1), w.writeDouble(0);  // granularity, tolerance
    w.writeBit(false), w.writeBit(false);
    w.writeUnsignedInteger(bodies);
}

void embedded(PRCBitWriter& w, uint32_t type) { w.writeBit(false), w.writeUnsignedInteger(type); }

// A B-rep body of one connex and one shell around `faces` faces, each
// written by face(w, k) from its surface's type on.
void brepBody(PRCBitWriter& w, uint32_t faces, const std::function<void(PRCBitWriter&, uint32_t)>& face) {
    w.writeUnsignedInteger(prc::exact::kTopoBrepData);
    w.writeBit(false), w.writeCharacter(0), w.writeUnsignedInteger(1);
    embedded(w, prc::exact::kTopoConnex), w.writeBit(false), w.writeUnsignedInteger(1);
    embedded(w, prc::exact::kTopoShell), w.writeBit(false), w.writeBit(false), w.writeUnsignedInteger(faces);
    for (uint32_t k = 0; k < faces; ++k) {
        embedded(w, prc::exact::kTopoFace), w.writeBit(false);
        face(w, k);
        w.writeCharacter(1);  // orientation
    }
}

// The rest of a face after its surface: no trimming domain unless asked.
void faceTail(PRCBitWriter& w, bool trimmed = false) {
    w.writeBit(trimmed);
    if (trimmed)
        for (int i = 0; i < 4; ++i) w.writeDouble(i < 2 ? 0 : 1);
    w.writeBit(false), w.writeUnsignedInteger(0), w.writeInteger(-1);
}

void unitSphere(PRCBitWriter& w) {
    embedded(w, prc::exact::kSurfaceSphere);
    w.writeBit(false), w.writeUnsignedInteger(0), w.writeBit(false);  // base, extension, no placement
    w.writeBit(false);
    for (double x : {0.0, -1.5707963267948966, 6.283185307179586, 1.5707963267948966, 1.0, 1.0, 0.0, 0.0, 1.0})
        w.writeDouble(x);
}

// A ruled surface's curve nested in composites `depth` deep.
void compositeCurve(PRCBitWriter& w, int depth) {
    embedded(w, depth == 0 ? 0u : uint32_t(prc::exact::kCurveComposite));
    if (depth == 0) return;
    w.writeBit(false), w.writeUnsignedInteger(0), w.writeBit(true), w.writeBit(false);  // base, extension, 3D, placement
    for (double x : {0.0, 1.0, 1.0, 0.0}) w.writeDouble(x);
    w.writeUnsignedInteger(1);
    compositeCurve(w, depth - 1);
    w.writeBit(true), w.writeBit(false);  // sense, closed
}

std::vector<uint8_t> exactOnlyFile(const PRCBitWriter& geometry) {
    prc::test::PRCFileBuilder builder;
    builder.addFileStructure().sections[3] = {geometry.bytes(), true};
    return builder.build();
}

// Faces the decoder cannot draw are named and counted, never guessed: a face
// with a trimming domain, one on a blend surface, and one on an offset
// surface, whose layout is unknown, so that its body and the body after it
// cannot be read. The sphere beside them is drawn.
TEST(ExactReport, FacesThatCannotBeDrawnAreNamedAndCounted) {
    PRCBitWriter w;
    geometryHead(w, 1);
    contextHead(w, 3);
    brepBody(w, 3, [](PRCBitWriter& w, uint32_t k) {
        if (k == 1) {
            embedded(w, prc::exact::kSurfaceBlend01);
            w.writeBit(false), w.writeUnsignedInteger(0), w.writeBit(false), w.writeBit(false);
            for (int i = 0; i < 8; ++i) w.writeDouble(i == 2 || i == 3 || i == 4 || i == 5 ? 1 : 0);
            for (int c = 0; c < 3; ++c) embedded(w, 0);
        } else {
            unitSphere(w);
        }
        faceTail(w, k == 0);
    });
    brepBody(w, 1, [](PRCBitWriter& w, uint32_t) { embedded(w, 84); });
    Decoded d;
    decode(exactOnlyFile(w), d);
    ASSERT_TRUE(d.ok);
    EXPECT_EQ(d.summary.faces_tessellated, 1u);
    const std::vector<std::string> lines = prc::exact::describeExactSummary(d.summary);
    const std::set<std::string> report(lines.begin(), lines.end());
    EXPECT_EQ(report, (std::set<std::string>{"tessellated from exact surfaces, chord tolerance 0.002",
                                             "1 trimmed face skipped", "1 face on a blend surface skipped",
                                             "1 face on an offset surface skipped",
                                             "2 bodies after data that cannot be read skipped"}));
}

// A wire body is passed over to reach the bodies after it. The extra
// geometry section gives faces their styles, counted across the context's
// bodies, after a summary of body types (the compressed kinds with a
// tolerance). A section that fails outside any body keeps a reason.
TEST(ExactReading, WireBodiesAndTheFaceStylesOfTheExtraSection) {
    PRCBitWriter w;
    geometryHead(w, 1);
    contextHead(w, 3);
    w.writeUnsignedInteger(prc::exact::kTopoSingleWireBody);
    w.writeBit(false), w.writeCharacter(0), embedded(w, 145), w.writeBit(false), embedded(w, 0), w.writeBit(false);
    for (int b = 0; b < 2; ++b) brepBody(w, 1, [](PRCBitWriter& w, uint32_t) { unitSphere(w), faceTail(w); });
    prc::PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
    prc::exact::ExactGeometry g = prc::exact::readFileStructureGeometry(r);
    ASSERT_EQ(g.contexts.size(), 1u);
    ASSERT_EQ(g.contexts[0].bodies.size(), 3u);

    PRCBitWriter x;
    x.writeUnsignedInteger(prc::exact::kFileStructureExtraGeometry);
    x.layout("u0 b00 u1 u3");  // one context, three bodies in its summary
    x.writeUnsignedInteger(prc::exact::kTopoBrepDataCompress), x.writeDouble(0.5);
    x.writeUnsignedInteger(173), x.writeDouble(0.5);  // a compressed tessellation
    x.writeUnsignedInteger(prc::exact::kTopoBrepData);
    x.writeUnsignedInteger(1), x.writeUnsignedInteger(prc::exact::kTopoFace), x.writeUnsignedInteger(2);
    x.writeBit(false);  // the first face keeps its own
    x.writeBit(true), x.writeBit(false), x.writeUnsignedInteger(1), x.writeUnsignedInteger(3), x.layout("c0 c0");
    prc::PRCBitReader xr(x.bytes().data(), x.bytes().size(), 8137);
    prc::exact::readFileStructureExtraGeometry(xr, g);
    EXPECT_EQ(g.contexts[0].bodies[1].faces[0].line_style_index, 0xFFFFFFFFu);
    EXPECT_EQ(g.contexts[0].bodies[2].faces[0].line_style_index, 2u);
    EXPECT_LT(xr.bitsRemaining(), 8u);

    PRCBitWriter bad;
    geometryHead(bad, 1);
    bad.writeUnsignedInteger(prc::exact::kTopoFace);  // where a context belongs
    prc::PRCBitReader br(bad.bytes().data(), bad.bytes().size(), 8137);
    EXPECT_EQ(prc::exact::readFileStructureGeometry(br).stop_reason, prc::exact::kSkipUnreadBodies);
}

// Counts checked against the data before anything is sized, bounded
// recursion, degrees and nets refused: each section is read as far as it
// can be and no further, with the reason kept.
TEST(ExactHostile, SectionsAreReadWithinTheirBounds) {
    struct Row {
        const char* what;
        std::function<void(PRCBitWriter&)> body;  // after a context of one body
        size_t faces;     // kept in the one body read, or
        uint8_t outcome;  // the face's skip reason, or the reading's stop reason when no body was read
    };
    const auto nurbsFace = [](PRCBitWriter& w, uint32_t degree, uint32_t highestPoint, uint32_t knotsWritten) {
        embedded(w, prc::exact::kSurfaceNurbs);
        w.writeBit(false), w.writeUnsignedInteger(0), w.writeBit(false);  // base, extension, not rational
        w.writeUnsignedInteger(degree), w.writeUnsignedInteger(degree);
        w.writeUnsignedInteger(highestPoint), w.writeUnsignedInteger(highestPoint);
        w.writeUnsignedInteger(highestPoint + degree + 1), w.writeUnsignedInteger(highestPoint + degree + 1);
        for (uint32_t i = 0; i < 3 * 4 && knotsWritten > 0; ++i) w.writeDouble(i);
        for (uint32_t i = 0; i < knotsWritten; ++i) w.writeDouble(i);
        w.writeUnsignedInteger(0), w.writeUnsignedInteger(0);
        faceTail(w);
    };
    const Row rows[] = {
        {"a NURBS net of 2^32 points in a short section",
         [&](PRCBitWriter& w) { brepBody(w, 1, [&](PRCBitWriter& w, uint32_t) { nurbsFace(w, 3, 65535, 0); }); }, 0,
         prc::exact::kSkipUnreadBodies},
        {"a degree of a thousand", [&](PRCBitWriter& w) {
             brepBody(w, 1, [&](PRCBitWriter& w, uint32_t) { nurbsFace(w, 1000, 1, 2 * 1003); });
         }, 1, prc::exact::kSkipInvalid},
        {"curves nested past their bound", [](PRCBitWriter& w) {
             brepBody(w, 1, [](PRCBitWriter& w, uint32_t) {
                 embedded(w, prc::exact::kSurfaceRuled);
                 w.writeBit(false), w.writeUnsignedInteger(0), w.writeBit(false), w.writeBit(false);
                 for (int i = 0; i < 8; ++i) w.writeDouble(i == 2 || i == 3 || i == 4 || i == 5 ? 1 : 0);
                 compositeCurve(w, 12);
             });
         }, 0, prc::exact::kSkipUnreadBodies},
        {"a compressed patch of 65,535 knots of multiplicity 7 a direction", [](PRCBitWriter& w) {
             w.writeUnsignedInteger(prc::exact::kTopoBrepDataCompress);
             w.writeBit(false), w.writeCharacter(0), w.writeDouble(0.01);
             w.writeBits(1, 5), w.writeBits(1, 1), w.writeBits(0, 1), w.writeBits(0, 1);  // reference width, no shared
             w.writeBit(true), w.writeBit(true);  // one shell, one face
             w.writeBit(false), w.writeBits(13, 4), w.writeBit(true), w.writeBit(false);
             w.writeBits(6, 5), w.writeBits(6, 5);  // degrees
             for (int direction = 0; direction < 2; ++direction) {
                 w.writeBits(65535, 16);
                 for (int k = 0; k < 65535; ++k) k == 0 ? (w.writeBit(false), w.writeBits(7, 3)) : w.writeBit(true);
             }
         }, 0, prc::exact::kSkipUnreadBodies},
        {"a reference to a face stored before", [](PRCBitWriter& w) {
             brepBody(w, 1, [](PRCBitWriter& w, uint32_t) { w.writeBit(true), w.writeUnsignedInteger(1); });
         }, 0, prc::exact::kSkipUnreadBodies},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        PRCBitWriter w;
        geometryHead(w, 1);
        contextHead(w, 1);
        row.body(w);
        prc::PRCBitReader r(w.bytes().data(), w.bytes().size(), 8137);
        const prc::exact::ExactGeometry g = prc::exact::readFileStructureGeometry(r);
        ASSERT_EQ(g.contexts.size(), 1u);
        if (row.faces == 0) {
            EXPECT_TRUE(g.contexts[0].bodies.empty());
            EXPECT_EQ(g.stop_reason, row.outcome);
            EXPECT_EQ(g.unread_bodies, 1u);
        } else {
            ASSERT_EQ(g.contexts[0].bodies.size(), 1u);
            ASSERT_EQ(g.contexts[0].bodies[0].faces.size(), row.faces);
            EXPECT_EQ(g.contexts[0].bodies[0].faces[0].skip, row.outcome);
        }
        Decoded d;  // and whole, through the decoder
        decode(exactOnlyFile(w), d);
        EXPECT_FALSE(d.ok);
    }
}

// The tessellation budget: a wild net asked for at a tiny tolerance is drawn
// coarser than asked (within the cells one face may take); once the model's
// cells are spent, faces are skipped, not drawn.
TEST(ExactHostile, TheTessellationBudgetHolds) {
    prc::exact::ExactFace face;
    prc::exact::NurbsData& n = face.surface.nurbs;
    face.surface.type = prc::exact::kSurfaceNurbs;
    n.degree_u = n.degree_v = 3, n.count_u = n.count_v = 4;
    n.knots_u = n.knots_v = {0, 0, 0, 0, 1, 1, 1, 1};
    for (uint32_t k = 0; k < 16; ++k) n.points.insert(n.points.end(), {double(k / 4), double(k % 4), k % 2 ? 1e6 : -1e6, 1});
    prc::exact::setKnotDomain(face.surface);
    prc::exact::TessellationBudget budget;
    const uint8_t rgb[3] = {1, 2, 3};
    prc::TessMesh piece;
    EXPECT_EQ(prc::exact::tessellateFace(face, 1e-9, budget, rgb, piece), prc::exact::FaceOutcome::Coarsened);
    EXPECT_LE(piece.triangles.size() / 3, 2 * prc::exact::kMaxFaceCells);
    EXPECT_GE(piece.triangles.size() / 3, prc::exact::kMaxFaceCells);
    budget.cells_left = 1000;
    EXPECT_EQ(prc::exact::tessellateFace(face, 1e-9, budget, rgb, piece), prc::exact::FaceOutcome::OverBudget);
    EXPECT_EQ(budget.cells_left, 1000u);
}

// A flat face is two triangles; faces drawn into one piece keep their own
// vertices; a face whose domain is one point draws nothing.
TEST(ExactFaces, FlatFacesShareAPieceNotTheirVertices) {
    prc::exact::ExactFace face;
    prc::exact::NurbsData& n = face.surface.nurbs;
    face.surface.type = prc::exact::kSurfaceNurbs;
    n.degree_u = n.degree_v = 1, n.count_u = n.count_v = 2;
    n.knots_u = n.knots_v = {0, 0, 1, 1};
    n.points = {0, 0, 0, 1, 0, 1, 0, 1, 1, 0, 0, 1, 1, 1, 0, 1};
    prc::exact::setKnotDomain(face.surface);
    prc::exact::TessellationBudget budget;
    const uint8_t rgb[3] = {1, 2, 3};
    prc::TessMesh piece;
    for (int k = 0; k < 2; ++k) EXPECT_EQ(prc::exact::tessellateFace(face, 0.01, budget, rgb, piece), prc::exact::FaceOutcome::Drawn);
    ASSERT_EQ(piece.positions.size(), 2 * 4 * 3u);
    ASSERT_EQ(piece.triangles.size(), 2 * 2 * 3u);
    EXPECT_EQ(std::set<uint32_t>(piece.triangles.begin() + 6, piece.triangles.end()), (std::set<uint32_t>{4, 5, 6, 7}));

    n.knots_u = n.knots_v = {1, 1, 1, 1};
    prc::exact::setKnotDomain(face.surface);
    prc::exact::tessellateFace(face, 0.01, budget, rgb, piece);
    EXPECT_EQ(piece.triangles.size(), 2 * 2 * 3u);
}

// Asymptote writes spheres as NURBS and cones and tori as compressed
// patches: the analytic kinds, which other writers use, are checked here on
// their implicit equations.
TEST(ExactFaces, AnalyticSurfacesLieOnTheirEquations) {
    using Point = std::array<double, 3>;
    const std::tuple<uint32_t, double, double, std::function<double(const Point&)>> kinds[] = {
        {prc::exact::kSurfaceSphere, 2, 0, [](const Point& p) { return std::hypot(p[0], p[1], p[2]) - 2; }},
        {prc::exact::kSurfaceCylinder, 2, 0, [](const Point& p) { return std::hypot(p[0], p[1]) - 2; }},
        {prc::exact::kSurfaceCone, 1, std::atan(0.5), [](const Point& p) { return std::hypot(p[0], p[1]) - 1 - p[2] / 2; }},
        {prc::exact::kSurfaceTorus, 2, 0.5, [](const Point& p) { return std::hypot(std::hypot(p[0], p[1]) - 2, p[2]) - 0.5; }},
    };
    for (const auto& [type, p0, p1, distance] : kinds) {
        SCOPED_TRACE(type);
        prc::exact::SurfaceDefinition s;
        s.type = type, s.p0 = p0, s.p1 = p1;
        std::vector<double> out;
        ASSERT_TRUE(prc::exact::evaluateSurfaceGrid(s, {0, 1, 2.5, 4}, {-1, 0.3, 1.2}, out));
        ASSERT_EQ(out.size(), 3 * 4 * 3u);
        std::set<std::pair<int, int>> quadrants;
        for (size_t k = 0; k < out.size(); k += 3) {
            EXPECT_NEAR(distance({out[k], out[k + 1], out[k + 2]}), 0, 1e-12);
            quadrants.insert({out[k] > 0, out[k + 1] > 0});
        }
        EXPECT_GE(quadrants.size(), 3u);  // u runs around the axis
    }
}

// The exact decoder as the host and the library offer it: meshdrone-extract
// runs it on outcome 1 and says so; the C interface's exact call reports the same.
TEST(ExactHosts, ExtractAndTheLibraryTellTheTolerance) {
    const std::string path = std::string(MESHDRONE_TEST_DATA) + "/exact/sphere.prc";
    std::string command = std::string(MESHDRONE_EXTRACT_EXE) + " --info --json '" + path + "'";
#if defined(__SANITIZE_ADDRESS__)
    command += " --memory 0";  // ASan's shadow memory does not fit in any address-space limit
#endif
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string report;
    for (int c; (c = std::fgetc(pipe)) != EOF;) report += char(c);
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_NE(report.find("\"description\": \"tessellated from exact surfaces, chord tolerance 0.002\""),
              std::string::npos) << report;
    EXPECT_NE(report.find("\"outcome\": \"decoded\""), std::string::npos);

    meshdrone_model* model = nullptr;
    EXPECT_EQ(meshdrone_decode_file(path.c_str(), &model), MESHDRONE_NO_GEOMETRY);
    ASSERT_EQ(meshdrone_decode_file_exact(path.c_str(), &model), MESHDRONE_OK);
    EXPECT_STREQ(model->exact_report, "tessellated from exact surfaces, chord tolerance 0.002");
    meshdrone_free(model);
}

}  // namespace
