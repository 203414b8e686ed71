#include "tools/extract/report.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace extract {

namespace {

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string point(const float* p) { return "(" + number(p[0]) + ", " + number(p[1]) + ", " + number(p[2]) + ")"; }

std::string plural(uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// Depth of every part below its root; parents come before their children.
std::vector<uint32_t> partDepths(const std::vector<ModelPart>& parts) {
    std::vector<uint32_t> depth(parts.size(), 0);
    for (size_t i = 0; i < parts.size(); ++i) {
        if (parts[i].parent < i) depth[i] = depth[parts[i].parent] + 1;
    }
    return depth;
}

// A float as the double with the fewest digits that reads back as that
// float: 0.1f goes out as 0.1, not as 0.10000000149011612.
double shortest(float value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    *end = '\0';
    return std::strtod(text, nullptr);
}

nlohmann::ordered_json box(const float* min, const float* max) {
    return {{"min", {shortest(min[0]), shortest(min[1]), shortest(min[2])}},
            {"max", {shortest(max[0]), shortest(max[1]), shortest(max[2])}}};
}

std::set<uint32_t> pagesWith3d(const Report& report) {
    std::set<uint32_t> pages;
    for (const ModelResult& model : report.models) {
        for (const ModelPlace& place : model.source.places) {
            if (place.page > 0) pages.insert(place.page);
        }
    }
    return pages;
}

const char* projectionName(const View3d& view) {
    switch (view.projection) {
        case Projection::Perspective: return "perspective";
        case Projection::Orthographic: return "orthographic";
        case Projection::Unstated: break;
    }
    return "no projection stated";
}

const char* placeKindName(PlaceKind kind) {
    switch (kind) {
        case PlaceKind::PrcFile: return "prc file";
        case PlaceKind::Annotation3d: return "3d annotation";
        case PlaceKind::RichMedia: return "richmedia instance";
        case PlaceKind::FileAttachment: return "file attachment annotation";
        case PlaceKind::EmbeddedFile: return "attached file";
    }
    return "";
}

}  // namespace

std::string reportText(const Report& report) {
    std::string out = report.input_path + ": ";
    if (report.kind == InputKind::Prc) {
        out += "PRC file, " + plural(report.input_bytes, "byte", "bytes") + "\n";
    } else {
        const std::set<uint32_t> pages = pagesWith3d(report);
        out += "PDF " + report.pdf_version + ", " + plural(report.page_count, "page", "pages") + ", " +
               plural(report.models.size(), "3D model", "3D models");
        if (!pages.empty()) {
            out += " on page";
            out += pages.size() > 1 ? "s " : " ";
            bool first = true;
            for (uint32_t page : pages) out += (first ? "" : ", ") + std::to_string(page), first = false;
        }
        out += "\n";
    }
    for (const std::string& warning : report.warnings) out += "  warning: " + toValidUtf8(warning) + "\n";

    for (const ModelResult& model : report.models) {
        out += "\n" + describeSource(model.source);
        if (!model.source.declared_subtype.empty()) out += ": " + model.source.declared_subtype;
        if (model.stream_bytes > 0) out += ", " + plural(model.stream_bytes, "byte", "bytes");
        if (model.source.place().through_reference) out += ", through a 3D reference";
        for (size_t i = 1; i < model.source.places.size(); ++i)
            out += "\n  also at " + toValidUtf8(describePlace(model.source.places[i]));
        out += "\n  outcome: " + std::string(outcomeName(model.outcome));
        if (model.outcome == Outcome::Decoded) {
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, " in %.2f s", model.seconds);
            out += seconds;
        } else {
            out += ": " + model.message;
        }
        out += "\n";
        if (model.prc.valid) {
            out += "  PRC: minimal version for read " + std::to_string(model.prc.minimal_version_for_read) +
                   ", authoring version " + std::to_string(model.prc.authoring_version) + ", " +
                   plural(model.prc.number_of_file_structures, "file structure", "file structures") + "\n";
        }
        for (size_t i = 0; i < model.source.views.size(); ++i) {
            const View3d& view = model.source.views[i];
            out += "  view " + std::to_string(i + 1) + ": " + (view.name.empty() ? "(unnamed)" : toValidUtf8(view.name)) +
                   " (" + projectionName(view) + (int(i) == model.source.default_view ? ", shown on opening" : "") + ")\n";
        }
        if (model.outcome != Outcome::Decoded) continue;
        out += "  globals: " + plural(model.color_count, "colour", "colours") + ", " +
               plural(model.material_count, "material", "materials") + ", " +
               plural(model.style_count, "style", "styles") + "\n";
        if (model.exact)
            for (const std::string& line : prc::exact::describeExactSummary(model.exact_summary))
                out += "  " + line + "\n";
        out += "  mesh: " + plural(model.vertex_count, "vertex", "vertices") + ", " +
               plural(model.triangle_count, "triangle", "triangles") + ", " +
               plural(model.mesh.parts.size(), "part", "parts") + "\n";
        const float size[3] = {model.box.max[0] - model.box.min[0], model.box.max[1] - model.box.min[1],
                               model.box.max[2] - model.box.min[2]};
        out += "  bounding box: " + point(model.box.min) + " to " + point(model.box.max) + ", size " + point(size) + "\n";
        if (!model.mesh.parts.empty()) {
            out += "  parts (own triangles):\n";
            const std::vector<uint32_t> depth = partDepths(model.mesh.parts);
            for (size_t i = 0; i < model.mesh.parts.size(); ++i) {
                const ModelPart& part = model.mesh.parts[i];
                // Deep chains stay readable: the indent stops growing at 32 levels.
                out += std::string(4 + 2 * std::min<uint32_t>(depth[i], 32), ' ');
                out += (part.name.empty() ? "(unnamed)" : toValidUtf8(part.name)) + " (" +
                       std::to_string(part.triangle_count) + ")\n";
            }
        }
        for (const std::string& file : model.written) out += "  written: " + file + "\n";
    }
    return out;
}

std::string reportJson(const Report& report) {
    // Keys in the order a reader expects them, not sorted.
    using json = nlohmann::ordered_json;
    json root;
    root["file"] = report.input_path;
    root["kind"] = report.kind == InputKind::Pdf ? "pdf" : "prc";
    root["bytes"] = report.input_bytes;
    if (report.kind == InputKind::Pdf) {
        root["pdf_version"] = report.pdf_version;
        root["pages"] = report.page_count;
        root["pages_with_3d"] = pagesWith3d(report);
    }
    root["warnings"] = report.warnings;
    json models = json::array();
    for (const ModelResult& model : report.models) {
        json entry;
        const ModelPlace& first = model.source.place();
        if (first.kind != PlaceKind::PrcFile) {
            if (first.page > 0) {
                entry["page"] = first.page;
                entry["annotation"] = first.annotation;
                entry["annotation_object"] = first.annotation_object;
            }
            entry["stream_object"] = model.source.stream_object;
            entry["through_reference"] = first.through_reference;
            json places = json::array();
            for (const ModelPlace& place : model.source.places) {
                json item;
                item["kind"] = placeKindName(place.kind);
                item["description"] = describePlace(place);
                if (place.page > 0) item["page"] = place.page, item["annotation"] = place.annotation;
                if (place.kind == PlaceKind::RichMedia) {
                    item["configuration"] = place.configuration;
                    item["configuration_name"] = place.configuration_name;
                    item["instance"] = place.instance;
                }
                if (!place.file_name.empty()) item["file_name"] = place.file_name;
                places.push_back(std::move(item));
            }
            entry["places"] = std::move(places);
            json views = json::array();
            for (size_t i = 0; i < model.source.views.size(); ++i) {
                const View3d& view = model.source.views[i];
                views.push_back({{"name", view.name},
                                 {"internal_name", view.internal_name},
                                 {"projection", projectionName(view)},
                                 {"shown_on_opening", int(i) == model.source.default_view}});
            }
            entry["views"] = std::move(views);
        }
        entry["subtype"] = model.source.declared_subtype;
        entry["bytes"] = model.stream_bytes;
        entry["outcome"] = outcomeName(model.outcome);
        entry["message"] = model.message;
        entry["seconds"] = model.seconds;
        if (model.prc.valid) {
            entry["prc"] = {{"minimal_version_for_read", model.prc.minimal_version_for_read},
                            {"authoring_version", model.prc.authoring_version},
                            {"file_structures", model.prc.number_of_file_structures}};
        }
        if (model.outcome == Outcome::Decoded) {
            entry["globals"] = {
                {"colors", model.color_count}, {"materials", model.material_count}, {"styles", model.style_count}};
            if (model.exact) {
                const prc::exact::ExactSummary& summary = model.exact_summary;
                json skipped = json::array();
                for (const auto& [reason, count] : summary.skipped)
                    skipped.push_back({{"reason", prc::exact::skipReasonPhrase(reason, count)}, {"count", count}});
                entry["exact"] = {{"description", prc::exact::describeExactSummary(summary).front()},
                                  {"chord_tolerance", shortest(summary.chord_tolerance)},
                                  {"faces", summary.faces_tessellated},
                                  {"skipped_total", summary.skipped_total},
                                  {"skipped", std::move(skipped)}};
            }
            entry["vertices"] = model.vertex_count;
            entry["triangles"] = model.triangle_count;
            entry["bounding_box"] = box(model.box.min, model.box.max);
            json parts = json::array();
            for (const ModelPart& part : model.mesh.parts) {
                parts.push_back({{"name", toValidUtf8(part.name)},
                                 {"parent", part.parent == kNoParent ? json(nullptr) : json(part.parent)},
                                 {"first_triangle", part.first_triangle},
                                 {"triangles", part.triangle_count},
                                 {"bounding_box", box(part.box_min, part.box_max)}});
            }
            entry["parts"] = std::move(parts);
        }
        entry["written"] = model.written;
        models.push_back(std::move(entry));
    }
    root["models"] = std::move(models);
    // Paths and messages may hold bytes that are not UTF-8; they are replaced
    // rather than making the whole report fail.
    return root.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace extract
