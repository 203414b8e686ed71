// The Python module: the C interface's models as NumPy arrays over the
// decoder's own blocks, and the host tool's PDF finder for the models of a PDF.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "meshdrone/meshdrone.h"
#include "tools/extract/input_models.h"

namespace py = pybind11;
using namespace pybind11::literals;

namespace {

// Owns one decoded model. The arrays handed out keep the Python object
// alive, and with it the blocks they look into.
class Model {
public:
    explicit Model(meshdrone_model* model) : model_(model) {}
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;
    ~Model() { meshdrone_free(model_); }
    const meshdrone_model& operator*() const { return *model_; }
    py::object parts;  // the list, built on first use

private:
    meshdrone_model* model_;
};

struct Part {
    py::str name;
    uint32_t index;
    std::optional<uint32_t> parent;
    uint32_t first_triangle;
    uint32_t triangle_count;
    py::tuple box_min;
    py::tuple box_max;
};

struct Place {
    uint32_t page;
    uint32_t annotation;
    std::string annotation_object;
    std::string stream_object;
    bool through_reference;
    std::string description;
};

// The models still to be decoded of one input; each is decoded when asked for.
struct PdfModels {
    std::vector<extract::ModelSource> sources;
    size_t next = 0;
};

// The type of meshdrone.DecodeError, made when the module is imported.
PyObject* decodeErrorType = nullptr;

[[noreturn]] void raiseDecodeError(meshdrone_result result, py::object place) {
    const char* message = meshdrone_result_message(result);
    py::object error = py::reinterpret_borrow<py::object>(decodeErrorType)(message);
    error.attr("result") = py::cast(result);
    const int outcome = meshdrone_result_outcome(result);
    error.attr("outcome") = outcome < 0 ? py::object(py::none()) : py::object(py::int_(outcome));
    error.attr("message") = py::str(message);
    error.attr("place") = std::move(place);
    PyErr_SetObject(decodeErrorType, error.ptr());
    throw py::error_already_set();
}

py::object wrap(meshdrone_result result, meshdrone_model* model, py::object place = py::none()) {
    if (result != MESHDRONE_OK) raiseDecodeError(result, std::move(place));
    return py::cast(new Model(model), py::return_value_policy::take_ownership);
}

// A read-only rows x 3 view of data, kept alive by owner.
template <class T>
py::array view(const T* data, uint32_t rows, py::handle owner) {
    py::array_t<T> array({py::ssize_t(rows), py::ssize_t(3)}, {3 * sizeof(T), sizeof(T)}, data, owner);
    array.attr("flags").attr("writeable") = false;
    return array;
}

const meshdrone_model& modelOf(py::handle self) { return *self.cast<const Model&>(); }

py::object decode(py::object source, bool exact) {
    meshdrone_model* model = nullptr;
    meshdrone_result result;
    if (py::isinstance<py::str>(source) || py::hasattr(source, "__fspath__")) {
        const std::string path = py::bytes(py::module_::import("os").attr("fsencode")(source));
        if (path.find('\0') != std::string::npos) throw py::value_error("decode: embedded null byte in the path");
        py::gil_scoped_release unlocked;
        result = exact ? meshdrone_decode_file_exact(path.c_str(), &model) : meshdrone_decode_file(path.c_str(), &model);
    } else {
        Py_buffer buffer;
        if (PyObject_GetBuffer(source.ptr(), &buffer, PyBUF_SIMPLE) != 0) {
            PyErr_Clear();
            throw py::type_error("decode: expected bytes-like PRC data, or a path as str or os.PathLike");
        }
        {
            py::gil_scoped_release unlocked;  // the buffer stays exported, so it cannot be resized meanwhile
            result = exact ? meshdrone_decode_exact(buffer.buf, size_t(buffer.len), &model)
                           : meshdrone_decode(buffer.buf, size_t(buffer.len), &model);
        }
        PyBuffer_Release(&buffer);
    }
    return wrap(result, model);
}

Place placeOf(const extract::ModelSource& source) {
    const extract::ModelPlace& first = source.place();  // the place that names the model
    return {first.page, first.annotation, first.annotation_object, source.stream_object, first.through_reference,
            extract::describeSource(source)};
}

PdfModels modelsInPdf(py::object path) {
    const std::string name = py::bytes(py::module_::import("os").attr("fsencode")(path));
    PdfModels models;
    {
        py::gil_scoped_release unlocked;
        models.sources = extract::readInputModels(name).models;
    }
    return models;
}

py::tuple nextModel(PdfModels& models) {
    while (models.next < models.sources.size()) {
        extract::ModelSource& source = models.sources[models.next++];
        if (source.kind != extract::StreamKind::Prc) continue;
        const std::vector<uint8_t> bytes = std::move(source.bytes);
        meshdrone_model* model = nullptr;
        meshdrone_result result;
        {
            py::gil_scoped_release unlocked;
            result = meshdrone_decode(bytes.data(), bytes.size(), &model);
        }
        py::object place = py::cast(placeOf(source));
        return py::make_tuple(place, wrap(result, model, place));
    }
    throw py::stop_iteration();
}

py::list partsOf(Model& model) {
    const meshdrone_model& m = *model;
    py::list parts(m.part_count);
    for (uint32_t i = 0; i < m.part_count; ++i) {
        const meshdrone_part& p = m.parts[i];
        // A name cut at 127 bytes may end inside a character.
        PyObject* name = PyUnicode_DecodeUTF8(p.name, py::ssize_t(strnlen(p.name, sizeof p.name)), "replace");
        if (name == nullptr) throw py::error_already_set();
        Part part{py::reinterpret_steal<py::str>(name), p.index, std::nullopt, p.first_triangle, p.triangle_count,
                  py::make_tuple(p.box_min[0], p.box_min[1], p.box_min[2]),
                  py::make_tuple(p.box_max[0], p.box_max[1], p.box_max[2])};
        if (p.parent != MESHDRONE_NO_PARENT) part.parent = p.parent;
        parts[i] = py::cast(std::move(part));
    }
    return parts;
}

}  // namespace

PYBIND11_MODULE(_meshdrone, m) {
    m.doc() = "PRC models (the 3D format of PDF 3D annotations) decoded into NumPy triangle meshes.";
    m.attr("__version__") = meshdrone_version();

    decodeErrorType = PyErr_NewExceptionWithDoc(
        "meshdrone.DecodeError",
        "A model that cannot be decoded, with the answer the meshdrone worker would give.\n\n"
        "result: the Result code; outcome: the outcome code of the worker's failure header\n"
        "(0 out of memory, 1 no geometry, 2 decoding error), None when the worker answers\n"
        "with an error record instead; message: the worker's message or a description of\n"
        "the outcome; place: the Place of the model within a PDF, or None.",
        PyExc_Exception, nullptr);
    if (decodeErrorType == nullptr) throw py::error_already_set();
    m.add_object("DecodeError", py::handle(decodeErrorType));

    py::enum_<meshdrone_result>(m, "Result", "The result codes of the C interface.")
        .value("OK", MESHDRONE_OK)
        .value("NO_RESULT", MESHDRONE_NO_RESULT)
        .value("NO_GEOMETRY", MESHDRONE_NO_GEOMETRY)
        .value("DECODING_ERROR", MESHDRONE_DECODING_ERROR)
        .value("OPEN_FAILED", MESHDRONE_OPEN_FAILED)
        .value("EMPTY_INPUT", MESHDRONE_EMPTY_INPUT)
        .value("OUT_OF_MEMORY", MESHDRONE_OUT_OF_MEMORY)
        .value("SHORT_READ", MESHDRONE_SHORT_READ)
        .value("TOO_LARGE", MESHDRONE_TOO_LARGE)
        .value("INVALID_ARGUMENT", MESHDRONE_INVALID_ARGUMENT);

    py::class_<Part>(m, "Part", "One node of the product structure.")
        .def_readonly("name", &Part::name, "The node's name, at most 127 bytes of UTF-8.")
        .def_readonly("index", &Part::index, "The part's position in Model.parts.")
        .def_readonly("parent", &Part::parent, "Position of the parent part; None for a root.")
        .def_readonly("first_triangle", &Part::first_triangle, "First row of Model.triangles of the node's own part.")
        .def_readonly("triangle_count", &Part::triangle_count, "Rows of the node's own part; children not included.")
        .def_readonly("box_min", &Part::box_min, "Minimum corner of the node's whole subtree; (0, 0, 0) when empty.")
        .def_readonly("box_max", &Part::box_max, "Maximum corner of the node's whole subtree.")
        .def("__repr__", [](const Part& p) {
            return "Part(" + std::string(py::repr(p.name)) + ", index=" + std::to_string(p.index) +
                   ", parent=" + (p.parent ? std::to_string(*p.parent) : "None") +
                   ", triangles=" + std::to_string(p.first_triangle) + "+" + std::to_string(p.triangle_count) +
                   ", box=" + std::string(py::repr(p.box_min)) + "-" + std::string(py::repr(p.box_max)) + ")";
        });

    py::class_<Model>(m, "Model",
                      "A decoded model. The arrays are read-only views of the decoder's memory (no copy);\n"
                      "they keep the model alive.")
        .def_property_readonly(
            "positions", [](py::handle self) { return view(modelOf(self).positions, modelOf(self).vertex_count, self); },
            "Vertex positions, float32, shape (n, 3).")
        .def_property_readonly(
            "triangles", [](py::handle self) { return view(modelOf(self).triangles, modelOf(self).triangle_count, self); },
            "Vertex indices, uint32, shape (m, 3).")
        .def_property_readonly(
            "colors", [](py::handle self) { return view(modelOf(self).colors, modelOf(self).vertex_count, self); },
            "One RGB colour per vertex, uint8, shape (n, 3).")
        .def_property_readonly(
            "parts",
            [](Model& model) {
                if (!model.parts) model.parts = partsOf(model);
                return py::list(model.parts);  // a list of the caller's own
            },
            "The nodes of the product structure (list of Part), empty when it could not be followed.")
        .def_property_readonly("minimal_version_for_read", [](const Model& model) { return (*model).minimal_version_for_read; })
        .def_property_readonly("authoring_version", [](const Model& model) { return (*model).authoring_version; })
        .def_property_readonly("number_of_file_structures", [](const Model& model) { return (*model).number_of_file_structures; })
        .def_property_readonly("color_count", [](const Model& model) { return (*model).color_count; },
                               "Colours summed over the globals of every file structure.")
        .def_property_readonly("material_count", [](const Model& model) { return (*model).material_count; })
        .def_property_readonly("style_count", [](const Model& model) { return (*model).style_count; })
        .def_property_readonly(
            "exact_report",
            [](const Model& model) -> py::object {
                const char* report = (*model).exact_report;
                return report ? py::object(py::str(report)) : py::object(py::none());
            },
            "None for the worker's decoder; for decode(..., exact=True), what the exact decoder reports:\n"
            "the chord tolerance, then one line per kind of face left out.")
        .def(
            "to_trimesh",
            [](py::object self) {
                py::module_ trimesh = py::module_::import("trimesh");
                // process=False keeps the vertices as they are, each with its colour.
                return trimesh.attr("Trimesh")("vertices"_a = self.attr("positions"), "faces"_a = self.attr("triangles"),
                                               "vertex_colors"_a = self.attr("colors"), "process"_a = false);
            },
            "The model as a trimesh.Trimesh with its vertex colours (needs the trimesh package).")
        .def("__repr__", [](const Model& model) {
            return "<meshdrone.Model: " + std::to_string((*model).vertex_count) + " vertices, " +
                   std::to_string((*model).triangle_count) + " triangles, " + std::to_string((*model).part_count) +
                   " parts>";
        });

    py::class_<Place>(m, "Place", "Where a model sits in its file.")
        .def_readonly("page", &Place::page, "1-based page number; 0 for a raw PRC file.")
        .def_readonly("annotation", &Place::annotation, "1-based among the page's annotations that carry models.")
        .def_readonly("annotation_object", &Place::annotation_object, "\"9 0\"; empty for a direct object.")
        .def_readonly("stream_object", &Place::stream_object, "\"7 0\" of the 3D stream.")
        .def_readonly("through_reference", &Place::through_reference, "Whether /3DD named a 3D reference dictionary.")
        .def_readonly("description", &Place::description)
        .def("__str__", [](const Place& p) { return p.description; })
        .def("__repr__", [](const Place& p) { return "<meshdrone.Place: " + p.description + ">"; });

    py::class_<PdfModels>(m, "PdfModels", "Iterator over the PRC models of a file, as (Place, Model).")
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", &nextModel);

    m.def("decode", &decode, "data_or_path"_a, py::kw_only(), "exact"_a = false,
          "Decodes one PRC stream: bytes-like data, or a path (str or os.PathLike) of a file\n"
          "holding it. Returns a Model; raises DecodeError when the stream cannot be decoded.\n"
          "With exact=True the exact decoder also tessellates the exact surfaces (B-rep bodies)\n"
          "that files without tessellations hold, as Asymptote writes them; Model.exact_report\n"
          "says how. The interpreter lock is released while decoding.");
    m.def("models_in_pdf", &modelsInPdf, "path"_a,
          "Every PRC model of a PDF (each 3D annotation whose stream is PRC), or of a raw PRC\n"
          "file, as (Place, Model) pairs decoded one at a time. A model that cannot be decoded\n"
          "raises DecodeError, whose place says which; next() then goes on with the next one.\n"
          "Raises RuntimeError when the file cannot be read or is neither PDF nor PRC.");
}
