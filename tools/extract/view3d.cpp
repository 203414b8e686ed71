#include "tools/extract/view3d.h"

#include <algorithm>
#include <cmath>

namespace extract {

namespace {

constexpr double kPi = 3.14159265358979323846;

double dot3(const double* a, const double* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
void cross3(const double* a, const double* b, double* out) {
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
}
bool normalize3(double* a) {
    const double length = std::sqrt(dot3(a, a));
    if (!(length > 1e-12) || !std::isfinite(length)) return false;
    for (int k = 0; k < 3; ++k) a[k] /= length;
    return true;
}

// The centre of the box and the radius of its bounding sphere; a unit
// sphere at the origin for an empty box, so that a camera still has a place.
void sphereOf(const Box& box, double* center, double* radius) {
    double r2 = 0;
    for (int k = 0; k < 3; ++k) {
        center[k] = box.empty ? 0.0 : (double{box.min[k]} + box.max[k]) / 2;
        const double half = box.empty ? 0.0 : (double{box.max[k]} - box.min[k]) / 2;
        r2 += half * half;
    }
    *radius = r2 > 0 && std::isfinite(r2) ? std::sqrt(r2) : 1.0;
}

// The rotation of a frame whose columns are a, b, c, as a unit quaternion
// (x, y, z, w), taken from the largest of its four components for accuracy.
void quaternionOf(const double* a, const double* b, const double* c, double* q) {
    const double m00 = a[0], m10 = a[1], m20 = a[2], m01 = b[0], m11 = b[1], m21 = b[2], m02 = c[0], m12 = c[1],
                 m22 = c[2];
    const double trace = m00 + m11 + m22;
    if (trace > 0) {
        const double s = std::sqrt(trace + 1.0) * 2;
        q[3] = s / 4, q[0] = (m21 - m12) / s, q[1] = (m02 - m20) / s, q[2] = (m10 - m01) / s;
    } else if (m00 > m11 && m00 > m22) {
        const double s = std::sqrt(1.0 + m00 - m11 - m22) * 2;
        q[3] = (m21 - m12) / s, q[0] = s / 4, q[1] = (m01 + m10) / s, q[2] = (m02 + m20) / s;
    } else if (m11 > m22) {
        const double s = std::sqrt(1.0 + m11 - m00 - m22) * 2;
        q[3] = (m02 - m20) / s, q[0] = (m01 + m10) / s, q[1] = s / 4, q[2] = (m12 + m21) / s;
    } else {
        const double s = std::sqrt(1.0 + m22 - m00 - m11) * 2;
        q[3] = (m10 - m01) / s, q[0] = (m02 + m20) / s, q[1] = (m12 + m21) / s, q[2] = s / 4;
    }
    const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    for (int k = 0; k < 4; ++k) q[k] /= length;
}

}  // namespace

std::optional<CameraFrame> cameraFrame(const View3d& view) {
    CameraFrame frame;
    for (int k = 0; k < 3; ++k) {
        frame.up[k] = view.c2w[3 + k];
        frame.forward[k] = view.c2w[6 + k];
        frame.position[k] = view.c2w[9 + k];
        if (!std::isfinite(frame.position[k])) return std::nullopt;
    }
    if (!normalize3(frame.forward)) return std::nullopt;
    const double along = dot3(frame.up, frame.forward);
    for (int k = 0; k < 3; ++k) frame.up[k] -= along * frame.forward[k];
    if (!normalize3(frame.up)) return std::nullopt;
    // x = y × z points left; right is z × y.
    cross3(frame.forward, frame.up, frame.right);
    return frame;
}

View3d isometricView(const Box& box, UpAxis up) {
    // The viewer looks down the diagonal from the front right (front is -Y
    // for a Z-up model, +Z for a Y-up one), the up axis upright.
    double center[3], radius;
    sphereOf(box, center, &radius);
    double toViewer[3] = {1, up == UpAxis::Z ? -1.0 : 1.0, 1};
    normalize3(toViewer);
    const double upAxis[3] = {0, up == UpAxis::Z ? 0.0 : 1.0, up == UpAxis::Z ? 1.0 : 0.0};
    double forward[3] = {-toViewer[0], -toViewer[1], -toViewer[2]}, right[3], screenUp[3];
    cross3(forward, upAxis, right);
    normalize3(right);
    cross3(right, forward, screenUp);
    View3d view;
    view.name = "isometric";
    const double distance = 3 * radius;
    for (int k = 0; k < 3; ++k) {
        view.c2w[k] = -right[k];
        view.c2w[3 + k] = screenUp[k];
        view.c2w[6 + k] = forward[k];
        view.c2w[9 + k] = center[k] + toViewer[k] * distance;
    }
    view.center_of_orbit = distance;
    view.projection = Projection::Orthographic;
    view.binding = Binding::Min;
    // Bound to the shorter side, 1 / scale units span it.
    view.ortho_scale = 0.88 / (2 * radius);
    return view;
}

double fittedFieldOfView(const CameraFrame& frame, const Box& box) {
    double center[3], radius;
    sphereOf(box, center, &radius);
    double toCenter[3] = {center[0] - frame.position[0], center[1] - frame.position[1], center[2] - frame.position[2]};
    const double distance = std::sqrt(dot3(toCenter, toCenter));
    if (!(distance > radius * 1.05)) return 90;  // the camera is inside the model
    const double offAxis = std::acos(std::clamp(dot3(toCenter, frame.forward) / distance, -1.0, 1.0));
    const double half = (offAxis + std::asin(radius / distance)) * 1.05;
    return std::clamp(2 * half * 180 / kPi, 1.0, 170.0);
}

std::optional<ViewCamera> viewCamera(const View3d& view, const Box& box) {
    std::optional<CameraFrame> found = cameraFrame(view);
    if (!found) return std::nullopt;
    CameraFrame frame = *found;
    const bool known = view.target_width > 0 && view.target_height > 0;
    const double width = known ? view.target_width : 1, height = known ? view.target_height : 1;
    Binding binding = view.binding;
    if (view.projection == Projection::Unstated) binding = Binding::Min;
    const double side = binding == Binding::Height ? height
                        : binding == Binding::Min  ? std::min(width, height)
                        : binding == Binding::Max  ? std::max(width, height)
                                                   : width;

    // How far before and behind the camera the box reaches.
    double nearest = HUGE_VAL, farthest = -HUGE_VAL, center[3], radius;
    sphereOf(box, center, &radius);
    for (int corner = 0; corner < 8; ++corner) {
        double offset[3];
        for (int k = 0; k < 3; ++k) {
            const double value = box.empty ? center[k] : (corner >> k & 1) ? box.max[k] : box.min[k];
            offset[k] = value - frame.position[k];
        }
        const double depth = dot3(offset, frame.forward);
        nearest = std::min(nearest, depth), farthest = std::max(farthest, depth);
    }

    ViewCamera camera;
    camera.name = view.name;
    camera.aspect_ratio = width / height;
    if (view.projection == Projection::Orthographic) {
        const double pointsPerUnit = view.ortho_scale * (binding == Binding::Absolute ? 1.0 : side);
        if (!(pointsPerUnit > 0) || !std::isfinite(pointsPerUnit)) return std::nullopt;
        camera.perspective = false;
        camera.xmag = width / (2 * pointsPerUnit);
        camera.ymag = height / (2 * pointsPerUnit);
        // A parallel projection looks the same from farther back: step back
        // until the whole model lies before the near plane.
        const double margin = radius * 0.01;
        if (nearest < margin) {
            const double back = margin - nearest;
            for (int k = 0; k < 3; ++k) frame.position[k] -= back * frame.forward[k];
            nearest += back, farthest += back;
        }
        camera.znear = nearest / 2;
        camera.zfar = farthest + margin;
    } else {
        double fov = view.projection == Projection::Perspective ? view.field_of_view : fittedFieldOfView(frame, box);
        if (!(fov > 0 && fov < 180)) fov = fittedFieldOfView(frame, box);
        const double tanHalfSide = std::tan(fov * kPi / 360);
        camera.yfov = 2 * std::atan(tanHalfSide * height / side);
        camera.perspective = true;
        camera.znear = nearest > 0 ? std::max(nearest * 0.9, radius * 1e-3) : radius * 1e-3;
        camera.zfar = std::max(farthest * 1.1, camera.znear * 2);
    }
    for (int k = 0; k < 3; ++k) camera.translation[k] = frame.position[k];
    // glTF cameras look down their -z with +y up: the local axes are right,
    // up and backward.
    const double backward[3] = {-frame.forward[0], -frame.forward[1], -frame.forward[2]};
    quaternionOf(frame.right, frame.up, backward, camera.rotation);
    return camera;
}

}  // namespace extract
