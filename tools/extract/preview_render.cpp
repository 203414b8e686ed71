#include "tools/extract/preview_render.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "tools/extract/output_file.h"

namespace extract {

namespace {

struct Vec3 {
    double x, y, z;
};
Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec3 operator*(Vec3 a, double k) { return {a.x * k, a.y * k, a.z * k}; }
double dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec3 cross(Vec3 a, Vec3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
Vec3 normalized(Vec3 a) {
    const double length = std::sqrt(dot(a, a));
    return length > 0 ? a * (1.0 / length) : Vec3{0, 0, 0};
}

// Where a vertex lands in the (supersampled) picture; depth grows toward
// the viewer.
struct Projected {
    double x, y, depth;
    bool valid;
};

// How the picture is taken: the camera's frame and either a parallel
// projection (scale in pixels per unit) or a perspective one (focal length
// in pixels). A fitted camera takes its scale and centre from the model.
struct Camera {
    Vec3 origin, right, up, toViewer;
    bool perspective = false;
    bool fit = false;
    double scale = 1;
    double background[3];
};

Vec3 vec(const double* a) { return {a[0], a[1], a[2]}; }

PreviewImage render(const ModelMesh& mesh, uint32_t width, uint32_t height, const Camera& camera) {
    PreviewImage image;
    image.width = width;
    image.height = height;
    uint8_t background[3];
    for (int k = 0; k < 3; ++k) background[k] = static_cast<uint8_t>(std::lround(std::clamp(camera.background[k], 0.0, 255.0)));
    image.rgb.resize(size_t{width} * height * 3);
    for (size_t i = 0; i < image.rgb.size(); i += 3) std::copy(background, background + 3, &image.rgb[i]);
    if (width == 0 || height == 0) return image;
    const Vec3 right = camera.right, screenUp = camera.up, toViewer = camera.toViewer;
    // The light comes from over the viewer's left shoulder, so faces turned
    // toward the viewer differ in brightness by their slope.
    const Vec3 light = normalized(toViewer + screenUp * 0.8 - right * 0.5);

    // Supersampling 2 x 2 smooths the edges; very large pictures go without
    // it to keep the buffers small.
    const uint32_t ss = uint64_t{width} * height <= 2048u * 2048u ? 2 : 1;
    const uint32_t w = width * ss, h = height * ss;

    const uint32_t vertexCount = mesh.vertexCount();
    std::vector<Projected> projected(vertexCount);
    std::vector<bool> used(vertexCount, false);
    for (uint32_t index : mesh.triangles) {
        if (index < vertexCount) used[index] = true;
    }
    // A perspective camera draws what lies in front of it, from a hair's
    // breadth on: a vertex at or behind it takes its triangles out.
    const double nearest = 1e-9 * std::max(1.0, std::sqrt(dot(camera.origin, camera.origin)));
    double minX = std::numeric_limits<double>::max(), maxX = -minX, minY = minX, maxY = -minX;
    for (uint32_t v = 0; v < vertexCount; ++v) {
        const float* p = &mesh.positions[size_t{v} * 3];
        const Vec3 point = Vec3{p[0], p[1], p[2]} - camera.origin;
        Projected& q = projected[v];
        q = {dot(point, right), dot(point, screenUp), dot(point, toViewer), true};
        if (camera.perspective) {
            const double ahead = -q.depth;
            q.valid = ahead > nearest;
            // 1/distance is affine across the picture, so it interpolates as depth.
            q = {w / 2.0 + camera.scale * ss * q.x / ahead, h / 2.0 - camera.scale * ss * q.y / ahead, 1 / ahead, q.valid};
        }
        q.valid = q.valid && std::isfinite(q.x) && std::isfinite(q.y) && std::isfinite(q.depth);
        if (!q.valid || !used[v]) continue;
        minX = std::min(minX, q.x), maxX = std::max(maxX, q.x);
        minY = std::min(minY, q.y), maxY = std::max(maxY, q.y);
    }
    if (minX > maxX) return image;  // nothing to draw

    if (camera.fit) {
        // Fit the projected model into the picture with a margin of 6% per side.
        const double usable = 0.88;
        const double spanX = maxX - minX, spanY = maxY - minY;
        double scale = std::numeric_limits<double>::max();
        if (spanX > 0) scale = std::min(scale, w * usable / spanX);
        if (spanY > 0) scale = std::min(scale, h * usable / spanY);
        if (scale == std::numeric_limits<double>::max() || !std::isfinite(scale)) scale = 1.0;
        const double centerX = (minX + maxX) / 2, centerY = (minY + maxY) / 2;
        for (Projected& q : projected) {
            q.x = (q.x - centerX) * scale + w / 2.0;
            q.y = h / 2.0 - (q.y - centerY) * scale;
        }
    } else if (!camera.perspective) {
        for (Projected& q : projected) {
            q.x = q.x * camera.scale * ss + w / 2.0;
            q.y = h / 2.0 - q.y * camera.scale * ss;
        }
    }

    std::vector<float> depth(size_t{w} * h, -std::numeric_limits<float>::infinity());
    std::vector<float> color(size_t{w} * h * 3);
    for (size_t i = 0; i < size_t{w} * h; ++i) {
        for (int k = 0; k < 3; ++k) color[i * 3 + k] = background[k];
    }

    const auto vertexColor = [&](uint32_t v, int k) -> double {
        const size_t c = size_t{v} * 3 + k;
        return c < mesh.colors.size() ? mesh.colors[c] : 255.0;
    };
    for (uint32_t t = 0; t < mesh.triangleCount(); ++t) {
        const uint32_t* tri = &mesh.triangles[size_t{t} * 3];
        if (tri[0] >= vertexCount || tri[1] >= vertexCount || tri[2] >= vertexCount) continue;
        const Projected& a = projected[tri[0]];
        const Projected& b = projected[tri[1]];
        const Projected& c = projected[tri[2]];
        if (!a.valid || !b.valid || !c.valid) continue;
        const double area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
        if (area == 0 || !std::isfinite(area)) continue;

        const auto world = [&](uint32_t v) {
            const float* p = &mesh.positions[size_t{v} * 3];
            return Vec3{p[0], p[1], p[2]};
        };
        const Vec3 normal = normalized(cross(world(tri[1]) - world(tri[0]), world(tri[2]) - world(tri[0])));
        // Both sides are lit alike: the winding of PRC triangles is not reliable.
        const double shade = 0.35 + 0.65 * std::abs(dot(normal, light));

        // A camera can throw a vertex far outside the picture: the bounds
        // are clamped before they become integers.
        const auto pixel = [](double value, uint32_t size) { return static_cast<int>(std::clamp(value, -1.0, double(size))); };
        const int x0 = std::max(0, pixel(std::floor(std::min({a.x, b.x, c.x})), w));
        const int x1 = std::min(static_cast<int>(w) - 1, pixel(std::ceil(std::max({a.x, b.x, c.x})), w));
        const int y0 = std::max(0, pixel(std::floor(std::min({a.y, b.y, c.y})), h));
        const int y1 = std::min(static_cast<int>(h) - 1, pixel(std::ceil(std::max({a.y, b.y, c.y})), h));
        const double inverseArea = 1.0 / area;
        for (int y = y0; y <= y1; ++y) {
            const double py = y + 0.5;
            for (int x = x0; x <= x1; ++x) {
                const double px = x + 0.5;
                // Barycentric weights; all share the sign of the area inside.
                const double wa = ((b.x - px) * (c.y - py) - (b.y - py) * (c.x - px)) * inverseArea;
                const double wb = ((c.x - px) * (a.y - py) - (c.y - py) * (a.x - px)) * inverseArea;
                const double wc = 1.0 - wa - wb;
                if (wa < 0 || wb < 0 || wc < 0) continue;
                const double z = wa * a.depth + wb * b.depth + wc * c.depth;
                const size_t pixel = size_t(y) * w + size_t(x);
                if (z <= depth[pixel]) continue;
                depth[pixel] = static_cast<float>(z);
                for (int k = 0; k < 3; ++k) {
                    const double value = wa * vertexColor(tri[0], k) + wb * vertexColor(tri[1], k) +
                                         wc * vertexColor(tri[2], k);
                    color[pixel * 3 + k] = static_cast<float>(value * shade);
                }
            }
        }
    }

    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            for (int k = 0; k < 3; ++k) {
                double sum = 0;
                for (uint32_t dy = 0; dy < ss; ++dy) {
                    for (uint32_t dx = 0; dx < ss; ++dx) sum += color[((size_t{y} * ss + dy) * w + x * ss + dx) * 3 + k];
                }
                const double value = std::clamp(sum / (ss * ss), 0.0, 255.0);
                image.rgb[(size_t{y} * width + x) * 3 + k] = static_cast<uint8_t>(value + 0.5 > 255 ? 255 : value + 0.5);
            }
        }
    }
    return image;
}

}  // namespace

PreviewImage renderPreview(const ModelMesh& mesh, uint32_t width, uint32_t height, UpAxis up) {
    // Isometric: the viewer looks down the diagonal from the front right
    // (front is -Y for a Z-up model, +Z for a Y-up one), at equal angles to
    // the three axes, with the model's up axis upright in the picture.
    Camera camera;
    const Vec3 upAxis = up == UpAxis::Z ? Vec3{0, 0, 1} : Vec3{0, 1, 0};
    camera.origin = {0, 0, 0};
    camera.toViewer = normalized(up == UpAxis::Z ? Vec3{1, -1, 1} : Vec3{1, 1, 1});
    camera.right = normalized(cross(camera.toViewer * -1.0, upAxis));
    camera.up = cross(camera.right, camera.toViewer * -1.0);
    camera.fit = true;
    for (int k = 0; k < 3; ++k) camera.background[k] = kPreviewBackground[k];
    return render(mesh, width, height, camera);
}

PreviewImage renderPreview(const ModelMesh& mesh, uint32_t width, uint32_t height, const View3d& view) {
    const std::optional<CameraFrame> frame = cameraFrame(view);
    if (!frame) return renderPreview(mesh, width, height, UpAxis::Z);
    Camera camera;
    camera.origin = vec(frame->position);
    camera.right = vec(frame->right);
    camera.up = vec(frame->up);
    camera.toViewer = vec(frame->forward) * -1.0;
    // The annotation's rectangle, centred, as large as the picture holds it.
    const bool known = view.target_width > 0 && view.target_height > 0;
    const double targetWidth = known ? view.target_width : width, targetHeight = known ? view.target_height : height;
    const double pixelsPerPoint = std::min(width / targetWidth, height / targetHeight);
    const Binding binding = view.projection == Projection::Unstated ? Binding::Min : view.binding;
    const double side = binding == Binding::Height ? targetHeight
                        : binding == Binding::Min  ? std::min(targetWidth, targetHeight)
                        : binding == Binding::Max  ? std::max(targetWidth, targetHeight)
                                                   : targetWidth;
    if (view.projection == Projection::Orthographic) {
        camera.scale = view.ortho_scale * (binding == Binding::Absolute ? 1.0 : side) * pixelsPerPoint;
    } else {
        const double fov = view.projection == Projection::Perspective ? view.field_of_view
                                                                      : fittedFieldOfView(*frame, usedVertexBox(mesh));
        camera.perspective = true;
        camera.scale = side * pixelsPerPoint / 2 / std::tan(fov * 3.14159265358979323846 / 360);
    }
    for (int k = 0; k < 3; ++k) camera.background[k] = view.background ? (*view.background)[k] * 255.0 : kPreviewBackground[k];
    return render(mesh, width, height, camera);
}

bool writePng(const PreviewImage& image, const std::string& path, std::string* error) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = image.width;
    png.height = image.height;
    png.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = 0;
    if (!png_image_write_get_memory_size(png, size, 0, image.rgb.data(), 0, nullptr)) {
        *error = std::string("cannot encode the PNG picture for ") + path + ": " + png.message;
        return false;
    }
    std::vector<uint8_t> bytes(size);
    if (!png_image_write_to_memory(&png, bytes.data(), &size, 0, image.rgb.data(), 0, nullptr)) {
        *error = std::string("cannot encode the PNG picture for ") + path + ": " + png.message;
        png_image_free(&png);
        return false;
    }
    OutputFile file(path);
    file.write(bytes.data(), size);
    if (!file.finish()) {
        *error = file.error();
        return false;
    }
    return true;
}

}  // namespace extract
