#pragma once
// The views a PDF gives a 3D model: where its camera stands and how it
// projects, as the document states them, and the cameras that follow from
// them for a picture or a glTF file.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/extract/model_mesh.h"

namespace extract {

enum class Projection {
    Perspective,
    Orthographic,
    Unstated,  // the view gives no projection: the picture keeps its camera and fits the model
};

// What the field of view (perspective) or the scale (orthographic) is
// measured against: a side of the annotation's rectangle, or nothing.
enum class Binding { Width, Height, Min, Max, Absolute };

struct View3d {
    std::string name;           // the external name shown to people, else the internal one, else ""
    std::string internal_name;  // the name scripts and the default-view entry use
    // Camera to world: the camera's x, y and z axes in world coordinates,
    // then its position. Its z axis is the direction of view and its y axis
    // is up in the picture, so its x axis points to the left.
    double c2w[12] = {0};
    double center_of_orbit = 0;  // distance along the direction of view; 0 when not given
    Projection projection = Projection::Unstated;
    double field_of_view = 0;  // degrees, perspective
    double ortho_scale = 1;    // orthographic: points per unit, times the bound side when bound
    Binding binding = Binding::Width;
    std::optional<std::array<float, 3>> background;  // RGB 0..1
    double target_width = 0, target_height = 0;      // the annotation's rectangle in points; 0 unknown
};

// The camera's frame made orthonormal: the direction of view kept, up made
// square to it. Empty when the matrix is degenerate or not finite.
struct CameraFrame {
    double position[3];
    double right[3], up[3], forward[3];
};
std::optional<CameraFrame> cameraFrame(const View3d& view);

// A view of the model from the isometric direction, looking at the box's
// centre, orthographic, the box's bounding sphere filling 88% of the shorter side.
View3d isometricView(const Box& box, UpAxis up);

// A glTF camera: placed by its node (rotation as x, y, z, w), looking down
// its -z with +y up, its near and far planes around the model's box.
struct ViewCamera {
    std::string name;
    double translation[3];
    double rotation[4];
    bool perspective = true;
    double yfov = 0, aspect_ratio = 1;  // perspective
    double xmag = 1, ymag = 1;          // orthographic
    double znear = 0, zfar = 0;         // zfar 0: infinite (perspective only)
};
std::optional<ViewCamera> viewCamera(const View3d& view, const Box& box);

// The field of view that a view without a stated projection gets: wide
// enough for the box's bounding sphere seen from the camera, in degrees.
double fittedFieldOfView(const CameraFrame& frame, const Box& box);

}  // namespace extract
