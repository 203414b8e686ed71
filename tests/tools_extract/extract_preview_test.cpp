// The preview picture: fitted to the model, depth-tested, in the vertex
// colours, and a readable PNG.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/tools_extract/extract_test_support.h"
#include "tools/extract/preview_render.h"

namespace extract {
namespace {

bool isBackground(const PreviewImage& image, uint32_t x, uint32_t y) {
    const uint8_t* p = &image.rgb[(size_t{y} * image.width + x) * 3];
    return p[0] == kPreviewBackground[0] && p[1] == kPreviewBackground[1] && p[2] == kPreviewBackground[2];
}

struct Coverage {
    uint32_t minX = UINT32_MAX, maxX = 0, minY = UINT32_MAX, maxY = 0, pixels = 0, reddish = 0, bluish = 0;
};

Coverage coverage(const PreviewImage& image) {
    Coverage c;
    for (uint32_t y = 0; y < image.height; ++y) {
        for (uint32_t x = 0; x < image.width; ++x) {
            if (isBackground(image, x, y)) continue;
            const uint8_t* p = &image.rgb[(size_t{y} * image.width + x) * 3];
            ++c.pixels;
            c.minX = std::min(c.minX, x), c.maxX = std::max(c.maxX, x);
            c.minY = std::min(c.minY, y), c.maxY = std::max(c.maxY, y);
            if (p[0] > 2 * p[2] && p[0] > 2 * p[1]) ++c.reddish;
            if (p[2] > 2 * p[0] && p[2] > 2 * p[1]) ++c.bluish;
        }
    }
    return c;
}

TEST(ExtractPreview, TheModelFillsThePictureInItsOwnColours) {
    const PreviewImage image = renderPreview(test::sampleAssembly(), 300, 200, UpAxis::Z);
    ASSERT_EQ(image.rgb.size(), 300u * 200 * 3);
    const Coverage c = coverage(image);
    EXPECT_GT(c.reddish, 500u);  // the tetrahedron
    EXPECT_GT(c.bluish, 500u);   // the quad
    // Fitted with a small margin: the wider extent spans most of the picture,
    // and nothing touches the border.
    const double spanX = (c.maxX - c.minX + 1) / 300.0, spanY = (c.maxY - c.minY + 1) / 200.0;
    EXPECT_GT(std::max(spanX, spanY), 0.8);
    EXPECT_GT(c.minX, 0u);
    EXPECT_LT(c.maxX, 299u);
    EXPECT_GT(c.minY, 0u);
    EXPECT_LT(c.maxY, 199u);
}

TEST(ExtractPreview, NearerTrianglesHideFartherOnesWhateverTheOrder) {
    // Two squares facing the viewer's diagonal: the blue one behind the red
    // one along the line of sight, and drawn after it.
    ModelMesh mesh;
    const float back = -2.0f;  // along -(1, -1, 1)
    for (float offset : {0.0f, back}) {
        const float d[3] = {offset, -offset, offset};
        const float corners[4][3] = {{-1, -1, 0}, {1, 1, 0}, {1, 1, 2}, {-1, -1, 2}};
        for (const auto& c : corners) {
            for (int a = 0; a < 3; ++a) mesh.positions.push_back(c[a] + d[a]);
        }
    }
    mesh.triangles = {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7};
    mesh.colors = {255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255};
    const PreviewImage image = renderPreview(mesh, 64, 64, UpAxis::Z);
    const Coverage c = coverage(image);
    EXPECT_GT(c.reddish, 300u);
    EXPECT_EQ(c.bluish, 0u);
}

TEST(ExtractPreview, DegenerateModelsGiveABlankPictureAndNoFault) {
    ModelMesh nothing;
    EXPECT_EQ(coverage(renderPreview(nothing, 16, 16, UpAxis::Z)).pixels, 0u);

    ModelMesh point;  // every corner at one place: no area to fill
    point.positions = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    point.triangles = {0, 1, 2};
    point.colors = {0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(coverage(renderPreview(point, 16, 16, UpAxis::Y)).pixels, 0u);

    ModelMesh poisoned = test::sampleAssembly();  // one vertex not finite: its triangles drop out
    poisoned.positions[0] = std::numeric_limits<float>::quiet_NaN();
    poisoned.positions[13] = std::numeric_limits<float>::infinity();
    const Coverage c = coverage(renderPreview(poisoned, 64, 64, UpAxis::Z));
    EXPECT_GT(c.reddish, 0u);  // triangle 1-2-3 has no bad corner
}

TEST(ExtractPreview, PngIsWrittenAndReadsBackExactly) {
    test::ScratchDir dir;
    const PreviewImage image = renderPreview(test::sampleAssembly(), 40, 30, UpAxis::Z);
    std::string error;
    ASSERT_TRUE(writePng(image, dir.file("p.png"), &error)) << error;
    const test::Picture picture = test::readPng(dir.file("p.png"));
    EXPECT_EQ(picture.width, 40u);
    EXPECT_EQ(picture.height, 30u);
    EXPECT_EQ(picture.rgb, image.rgb);
    EXPECT_FALSE(writePng(image, "/dev/full", &error));
    EXPECT_EQ(error, "cannot write /dev/full: No space left on device");
}

}  // namespace
}  // namespace extract
