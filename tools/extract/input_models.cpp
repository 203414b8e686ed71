#include "tools/extract/input_models.h"

#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFNameTreeObjectHelper.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>

namespace extract {

namespace {

// Views kept per model: far more than any document names, few enough that a
// list repeating one view a million times costs nothing.
constexpr int kMaxViews = 1000;

std::vector<uint8_t> readWholeFile(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) throw std::runtime_error(path + ": cannot open: " + std::strerror(errno));
    std::vector<uint8_t> bytes;
    uint8_t block[1 << 16];
    size_t got;
    while ((got = std::fread(block, 1, sizeof block, file)) > 0) bytes.insert(bytes.end(), block, block + got);
    const bool failed = std::ferror(file) != 0;
    const int error = errno;
    std::fclose(file);
    if (failed) throw std::runtime_error(path + ": cannot read: " + std::strerror(error));
    return bytes;
}

bool startsWith(const std::vector<uint8_t>& bytes, std::string_view magic) {
    return bytes.size() >= magic.size() && std::memcmp(bytes.data(), magic.data(), magic.size()) == 0;
}

// PDF readers accept up to 1 KiB of anything before the header.
bool looksLikePdf(const std::vector<uint8_t>& bytes) {
    const size_t window = std::min<size_t>(bytes.size(), 1024 + 5);
    const std::string_view head(reinterpret_cast<const char*>(bytes.data()), window);
    return head.find("%PDF-") != std::string_view::npos;
}

std::string objectName(QPDFObjectHandle& object) {
    if (!object.isIndirect()) return "";
    return std::to_string(object.getObjectID()) + " " + std::to_string(object.getGeneration());
}

// Collects stream data up to a size limit; a larger stream stops the decoding
// instead of growing without bound (a small compressed stream can inflate to
// gigabytes). What fits is kept, so a small limit reads a stream's first bytes.
class LimitedCollector : public Pipeline {
public:
    LimitedCollector(std::vector<uint8_t>& out, uint64_t limit) : Pipeline("3D stream", nullptr), out_(out), limit_(limit) {}
    void write(unsigned char const* data, size_t length) override {
        const size_t room = static_cast<size_t>(limit_ - std::min<uint64_t>(limit_, out_.size()));
        out_.insert(out_.end(), data, data + std::min(length, room));
        if (length > room) {
            too_large_ = true;
            throw std::runtime_error("3D stream larger than the limit");
        }
    }
    void finish() override {}
    bool tooLarge() const { return too_large_; }

private:
    std::vector<uint8_t>& out_;
    uint64_t limit_;
    bool too_large_ = false;
};

std::string subtypeOf(QPDFObjectHandle& stream) {
    QPDFObjectHandle subtype = stream.getDict().getKey("/Subtype");
    if (!subtype.isName()) return "";
    const std::string name = subtype.getName();
    return name.size() > 1 ? name.substr(1) : name;
}

// Reading a key of something that is not a dictionary gives null here, not
// a warning: damaged files put anything anywhere.
QPDFObjectHandle key(QPDFObjectHandle object, const char* name) {
    return object.isDictionary() ? object.getKey(name) : QPDFObjectHandle::newNull();
}
bool isName(QPDFObjectHandle object, const char* name) { return object.isName() && object.getName() == name; }
std::string textOf(QPDFObjectHandle object) { return object.isString() ? object.getUTF8Value() : ""; }

// Decodes one stream and decides what it holds: by its content, which is
// what the worker will see, with the declared /Subtype as a hint for U3D.
// what names the stream in messages: "the 3D stream", "the embedded file 'a.prc'".
void readModelStream(QPDFObjectHandle stream, const std::string& what, ModelSource& model) {
    model.stream_object = objectName(stream);
    model.declared_subtype = subtypeOf(stream);
    const std::string object = model.stream_object.empty() ? "" : " (object " + model.stream_object + ")";

    LimitedCollector collector(model.bytes, kMaxModelBytes);
    bool succeeded = false, filtered = false;
    std::string failure;
    try {
        succeeded = stream.pipeStreamData(&collector, &filtered, 0, qpdf_dl_all, true, false);
    } catch (std::exception& e) {
        failure = e.what();
    }
    // A filter the library does not know leaves the data as stored, which
    // is then not the model.
    QPDFObjectHandle filters = stream.getDict().getKey("/Filter");
    const bool hasFilters = filters.isName() || (filters.isArray() && filters.getArrayNItems() > 0);
    if (succeeded && !filtered && hasFilters) {
        succeeded = false;
        failure = "unsupported filter " + filters.unparse();
    }
    if (collector.tooLarge()) {
        model.bytes.clear();
        model.kind = StreamKind::Unreadable;
        model.problem = what + object + " decodes to more than 2 GiB, more than the worker takes";
        return;
    }
    if (!succeeded) {
        model.bytes.clear();
        model.kind = StreamKind::Unreadable;
        model.problem = "the filters of " + what + object + " cannot be decoded";
        if (!failure.empty()) model.problem += ": " + failure;
        return;
    }
    if (startsWith(model.bytes, "PRC")) {
        model.kind = StreamKind::Prc;
    } else if (startsWith(model.bytes, "U3D") || model.declared_subtype == "U3D") {
        model.kind = StreamKind::U3d;
        model.problem = what + object + " is U3D, which is not supported (only PRC is)";
    } else {
        model.kind = StreamKind::Unknown;
        model.problem = what + object + " is not PRC data" +
                        (model.declared_subtype.empty() ? "" : " although its /Subtype is /" + model.declared_subtype);
    }
    if (model.kind != StreamKind::Prc) model.bytes.clear();
}

// Whether a stream's data starts as PRC data does, read no further: files
// of any size and kind (videos, scripts, documents) are only looked at.
bool startsAsPrc(QPDFObjectHandle stream) {
    std::vector<uint8_t> head;
    LimitedCollector collector(head, 3);
    try {
        stream.pipeStreamData(&collector, nullptr, 0, qpdf_dl_all, true, false);
    } catch (std::exception&) {
        // Stopped at the limit, or data that cannot be decoded: what came is what counts.
    }
    return startsWith(head, "PRC");
}

// A 3D view dictionary; nothing for one whose camera is not a plain
// 12-number matrix (the U3D form names a matrix inside the U3D data).
std::optional<View3d> readView(QPDFObjectHandle dictionary) {
    if (!dictionary.isDictionary()) return std::nullopt;
    QPDFObjectHandle ms = key(dictionary, "/MS");
    if (!ms.isNull() && !isName(ms, "/M")) return std::nullopt;
    QPDFObjectHandle matrix = key(dictionary, "/C2W");
    if (!matrix.isArray() || matrix.getArrayNItems() != 12) return std::nullopt;
    View3d view;
    for (int i = 0; i < 12; ++i) {
        QPDFObjectHandle number = matrix.getArrayItem(i);
        if (!number.isNumber()) return std::nullopt;
        view.c2w[i] = number.getNumericValue();
    }
    view.internal_name = textOf(key(dictionary, "/IN"));
    view.name = textOf(key(dictionary, "/XN"));
    if (view.name.empty()) view.name = view.internal_name;
    QPDFObjectHandle orbit = key(dictionary, "/CO");
    if (orbit.isNumber()) view.center_of_orbit = orbit.getNumericValue();

    QPDFObjectHandle projection = key(dictionary, "/P");
    const auto bindingOf = [](QPDFObjectHandle name, Binding fallback) {
        if (isName(name, "/W")) return Binding::Width;
        if (isName(name, "/H")) return Binding::Height;
        if (isName(name, "/Min")) return Binding::Min;
        if (isName(name, "/Max")) return Binding::Max;
        if (isName(name, "/Absolute")) return Binding::Absolute;
        return fallback;
    };
    QPDFObjectHandle subtype = key(projection, "/Subtype");
    if (isName(subtype, "/P")) {
        QPDFObjectHandle fov = key(projection, "/FOV");
        view.field_of_view = fov.isNumber() ? fov.getNumericValue() : 0;
        // A field of view out of range leaves the picture to fit the model.
        view.projection = view.field_of_view > 0 && view.field_of_view < 180 ? Projection::Perspective : Projection::Unstated;
        // A numeric scale stands for the width, the default side.
        view.binding = bindingOf(key(projection, "/PS"), Binding::Width);
        if (view.binding == Binding::Absolute) view.binding = Binding::Width;
    } else if (isName(subtype, "/O")) {
        QPDFObjectHandle scale = key(projection, "/OS");
        view.ortho_scale = scale.isNumber() ? scale.getNumericValue() : 1;
        view.projection = view.ortho_scale > 0 && std::isfinite(view.ortho_scale) ? Projection::Orthographic
                                                                                  : Projection::Unstated;
        view.binding = bindingOf(key(projection, "/OB"), Binding::Absolute);
    }

    QPDFObjectHandle background = key(dictionary, "/BG");
    if (background.isDictionary()) {
        std::array<float, 3> rgb = {1, 1, 1};  // a background without a colour is white
        QPDFObjectHandle color = key(background, "/C");
        if (color.isArray() && color.getArrayNItems() == 3) {
            for (int k = 0; k < 3; ++k) {
                QPDFObjectHandle c = color.getArrayItem(k);
                const double value = c.isNumber() ? c.getNumericValue() : 1;
                rgb[k] = static_cast<float>(std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 1.0);
            }
        }
        view.background = rgb;
    }
    if (!cameraFrame(view)) return std::nullopt;  // a camera that looks nowhere
    return view;
}

// The entries of a view list (a 3D stream's /VA, a RichMedia content's
// /Views): the object each came from and its index in the model's views,
// -1 for one that gives no usable camera.
struct ListedView {
    QPDFObjGen object;
    int index;
};
std::vector<ListedView> readViews(QPDFObjectHandle list, ModelSource& model) {
    std::vector<ListedView> listed;
    if (!list.isArray()) return listed;
    const int count = std::min(list.getArrayNItems(), kMaxViews);
    for (int i = 0; i < count; ++i) {
        QPDFObjectHandle item = list.getArrayItem(i);
        std::optional<View3d> view = readView(item);
        listed.push_back({item.getObjGen(), view ? static_cast<int>(model.views.size()) : -1});
        if (view) model.views.push_back(std::move(*view));
    }
    return listed;
}

// The index of a view given as a dictionary: the listed view that is the
// same object, else the view added at the end.
int viewIndex(QPDFObjectHandle dictionary, const std::vector<ListedView>& listed, ModelSource& model) {
    if (dictionary.isIndirect()) {
        for (const ListedView& entry : listed) {
            if (entry.object == dictionary.getObjGen()) return entry.index;
        }
    }
    std::optional<View3d> view = readView(dictionary);
    if (!view) return -1;
    model.views.push_back(std::move(*view));
    return static_cast<int>(model.views.size()) - 1;
}

// A view named by its index in the list, by /F or /L, or by internal name,
// as the default view entries of an annotation and of a 3D stream name it.
int viewByReference(QPDFObjectHandle reference, const std::vector<ListedView>& listed, const ModelSource& model) {
    if (reference.isInteger()) {
        const long long index = reference.getIntValue();
        return index >= 0 && static_cast<size_t>(index) < listed.size() ? listed[index].index : -1;
    }
    if (isName(reference, "/F")) return listed.empty() ? -1 : listed.front().index;
    if (isName(reference, "/L")) return listed.empty() ? -1 : listed.back().index;
    if (reference.isString()) {
        const std::string name = reference.getUTF8Value();
        for (const ListedView& entry : listed) {
            if (entry.index >= 0 && model.views[entry.index].internal_name == name) return entry.index;
        }
    }
    return -1;
}

void setTarget(QPDFObjectHandle annotation, ModelSource& model) {
    QPDFObjectHandle rect = key(annotation, "/Rect");
    if (!rect.isRectangle()) return;
    const QPDFObjectHandle::Rectangle r = rect.getArrayAsRectangle();
    for (View3d& view : model.views) {
        view.target_width = std::abs(r.urx - r.llx);
        view.target_height = std::abs(r.ury - r.lly);
    }
}

// The embedded file of a file specification: /EF /F, else /EF /UF.
QPDFObjectHandle embeddedFile(QPDFObjectHandle fileSpec) {
    QPDFObjectHandle files = key(fileSpec, "/EF");
    QPDFObjectHandle stream = key(files, "/F");
    return stream.isStream() ? stream : key(files, "/UF");
}
std::string fileNameOf(QPDFObjectHandle fileSpec) {
    if (fileSpec.isString()) return fileSpec.getUTF8Value();
    std::string name = textOf(key(fileSpec, "/UF"));
    return name.empty() ? textOf(key(fileSpec, "/F")) : name;
}

// Walks a PDF and collects its models, one per stream however often it is reached.
class ModelFinder {
public:
    explicit ModelFinder(InputModels& input) : input_(input) {}

    void page(QPDFObjectHandle pageObject, uint32_t pageNumber) {
        QPDFObjectHandle annotations = key(pageObject, "/Annots");
        if (!annotations.isArray()) return;
        uint32_t ordinal = 0;
        std::set<QPDFObjGen> seen;
        const int count = annotations.getArrayNItems();
        for (int a = 0; a < count && !full(); ++a) {
            QPDFObjectHandle annotation = annotations.getArrayItem(a);
            if (!annotation.isDictionary()) continue;
            // An annotation listed twice on its page is one annotation.
            if (annotation.isIndirect() && !seen.insert(annotation.getObjGen()).second) continue;
            ModelPlace place;
            place.page = pageNumber;
            place.annotation = ordinal + 1;
            place.annotation_object = objectName(annotation);
            QPDFObjectHandle subtype = key(annotation, "/Subtype");
            bool found = false;
            if (isName(subtype, "/3D")) {
                annotation3d(annotation, place);
                found = true;
            } else if (isName(subtype, "/RichMedia")) {
                found = richMedia(annotation, place);
            } else if (isName(subtype, "/FileAttachment")) {
                place.kind = PlaceKind::FileAttachment;
                QPDFObjectHandle spec = key(annotation, "/FS");
                place.file_name = fileNameOf(spec);
                found = attachedFile(spec, place);
            }
            if (found) ++ordinal;
        }
    }

    void embeddedFiles(QPDF& pdf) {
        QPDFObjectHandle tree = key(key(pdf.getRoot(), "/Names"), "/EmbeddedFiles");
        // An empty tree is common and harmless; the reader would call it damage.
        const auto filled = [&](const char* name) {
            QPDFObjectHandle list = key(tree, name);
            return list.isArray() && list.getArrayNItems() > 0;
        };
        if (!filled("/Names") && !filled("/Kids")) return;
        uint32_t ordinal = 0;
        QPDFNameTreeObjectHelper names(tree, pdf, false);
        for (auto entry = names.begin(); entry != names.end() && !full(); ++entry) {
            ModelPlace place;
            place.kind = PlaceKind::EmbeddedFile;
            place.attachment = ++ordinal;
            place.file_name = fileNameOf(entry->second);
            // The key is a PDF text string, in either of its encodings.
            if (place.file_name.empty()) place.file_name = QPDFObjectHandle::newString(entry->first).getUTF8Value();
            attachedFile(entry->second, place);
        }
    }

    bool full() const { return places_ >= kMaxPlaces; }

private:
    static constexpr size_t kMaxPlaces = 10000;

    // The model of this stream if it was already found, with this place added.
    bool known(QPDFObjectHandle stream, const ModelPlace& place) {
        if (!stream.isIndirect()) return false;
        const auto it = byStream_.find(stream.getObjGen());
        if (it == byStream_.end()) return false;
        input_.models[it->second].places.push_back(place);
        ++places_;
        return true;
    }
    void add(ModelSource model, QPDFObjectHandle stream) {
        if (stream.isStream() && stream.isIndirect()) byStream_[stream.getObjGen()] = input_.models.size();
        input_.models.push_back(std::move(model));
        ++places_;
    }

    void annotation3d(QPDFObjectHandle annotation, ModelPlace place) {
        place.kind = PlaceKind::Annotation3d;
        QPDFObjectHandle data = key(annotation, "/3DD");
        if (data.isDictionary() && !data.isStream()) {
            // A 3D reference dictionary lets several annotations share one stream.
            place.through_reference = true;
            data = key(data, "/3DD");
        }
        if (known(data, place)) return;
        ModelSource model;
        model.places.push_back(place);
        if (!data.isStream()) {
            model.kind = StreamKind::Unreadable;
            model.problem = place.through_reference ? "the 3D reference of the annotation names no 3D stream"
                                                    : "the annotation has no 3D stream in /3DD";
            add(std::move(model), data);
            return;
        }
        readModelStream(data, "the 3D stream", model);
        QPDFObjectHandle dictionary = data.getDict();
        const std::vector<ListedView> listed = readViews(key(dictionary, "/VA"), model);
        QPDFObjectHandle chosen = key(annotation, "/3DV");
        if (isName(chosen, "/D") || chosen.isNull()) chosen = key(dictionary, "/DV");
        model.default_view = chosen.isDictionary() ? viewIndex(chosen, listed, model)
                                                   : viewByReference(chosen, listed, model);
        // Without any default entry, the first listed view is the one shown.
        if (model.default_view < 0 && chosen.isNull() && !listed.empty()) model.default_view = listed.front().index;
        setTarget(annotation, model);
        add(std::move(model), data);
    }

    bool richMedia(QPDFObjectHandle annotation, ModelPlace place) {
        place.kind = PlaceKind::RichMedia;
        QPDFObjectHandle content = key(annotation, "/RichMediaContent");
        QPDFObjectHandle configurations = key(content, "/Configurations");
        if (!configurations.isArray()) return false;
        QPDFObjectHandle activation = key(key(annotation, "/RichMediaSettings"), "/Activation");
        QPDFObjectHandle activated = key(activation, "/Configuration");
        bool found = false;
        const int count = configurations.getArrayNItems();
        for (int c = 0; c < count && !full(); ++c) {
            QPDFObjectHandle configuration = configurations.getArrayItem(c);
            QPDFObjectHandle instances = key(configuration, "/Instances");
            if (!instances.isArray()) continue;
            place.configuration = static_cast<uint32_t>(c + 1);
            place.configuration_name = textOf(key(configuration, "/Name"));
            // The activation's view is the one shown for the configuration it
            // starts (the first when it names none); otherwise the first view.
            const bool started = activated.isNull() ? c == 0
                                                    : activated.isIndirect() && configuration.isIndirect() &&
                                                          activated.getObjGen() == configuration.getObjGen();
            const int instanceCount = instances.getArrayNItems();
            for (int i = 0; i < instanceCount && !full(); ++i) {
                QPDFObjectHandle instance = instances.getArrayItem(i);
                if (!instance.isDictionary()) continue;
                place.instance = static_cast<uint32_t>(i + 1);
                QPDFObjectHandle asset = key(instance, "/Asset");
                place.file_name = fileNameOf(asset);
                QPDFObjectHandle stream = embeddedFile(asset);
                // Other media (video, Flash, scripts) count only when their bytes are PRC.
                const bool declared3d = isName(key(instance, "/Subtype"), "/3D");
                if (known(stream, place)) {
                    found = true;
                    continue;
                }
                ModelSource model;
                model.places.push_back(place);
                const std::string what = "the embedded file '" + place.file_name + "'";
                if (!stream.isStream()) {
                    if (!declared3d) continue;
                    model.kind = StreamKind::Unreadable;
                    model.problem = asset.isDictionary() || asset.isString()
                                        ? "the asset '" + place.file_name + "' has no embedded file (/EF /F)"
                                        : "the 3D instance has no asset";
                } else {
                    if (!declared3d && !startsAsPrc(stream)) continue;
                    readModelStream(stream, what, model);
                    const std::vector<ListedView> listed = readViews(key(content, "/Views"), model);
                    QPDFObjectHandle view = key(activation, "/View");
                    if (started && view.isDictionary()) model.default_view = viewIndex(view, listed, model);
                    if (model.default_view < 0 && !listed.empty()) model.default_view = listed.front().index;
                    setTarget(annotation, model);
                }
                found = true;
                add(std::move(model), stream);
            }
        }
        return found;
    }

    // A file attached to the document or by an annotation: a model when its
    // bytes are PRC, otherwise none of our business.
    bool attachedFile(QPDFObjectHandle fileSpec, const ModelPlace& place) {
        QPDFObjectHandle stream = embeddedFile(fileSpec);
        if (!stream.isStream()) return false;
        if (known(stream, place)) return true;
        if (!startsAsPrc(stream)) return false;
        ModelSource model;
        model.places.push_back(place);
        readModelStream(stream, "the embedded file '" + place.file_name + "'", model);
        add(std::move(model), stream);
        return true;
    }

    InputModels& input_;
    std::map<QPDFObjGen, size_t> byStream_;
    size_t places_ = 0;
};

InputModels readPdfModels(const std::string& path, const std::vector<uint8_t>& bytes) {
    InputModels input;
    input.kind = InputKind::Pdf;
    QPDF pdf;
    pdf.setSuppressWarnings(true);
    try {
        pdf.processMemoryFile(path.c_str(), reinterpret_cast<const char*>(bytes.data()), bytes.size());
        input.pdf_version = pdf.getPDFVersion();
        std::vector<QPDFPageObjectHelper> pages = QPDFPageDocumentHelper(pdf).getAllPages();
        input.page_count = static_cast<uint32_t>(pages.size());
        ModelFinder finder(input);
        for (size_t p = 0; p < pages.size(); ++p) finder.page(pages[p].getObjectHandle(), static_cast<uint32_t>(p + 1));
        // A broken name tree of attachments costs the attachments only.
        try {
            finder.embeddedFiles(pdf);
        } catch (std::exception& e) {
            input.warnings.push_back(std::string("the attached files cannot be listed: ") + e.what());
        }
        if (finder.full()) input.warnings.push_back("more than 10000 places hold 3D models; the rest are ignored");
    } catch (std::exception& e) {
        std::string reason = e.what();
        // The reader's own messages start with the file name already.
        if (reason.rfind(path, 0) == 0) reason = reason.substr(path.size());
        if (reason.rfind(": ", 0) == 0) reason = reason.substr(2);
        throw std::runtime_error(path + ": the PDF cannot be read: " + reason);
    }
    for (const QPDFExc& warning : pdf.getWarnings()) {
        std::string text = warning.what();
        // The reader names the file in front of most of them; we name it once.
        if (text.rfind(path + ": ", 0) == 0) text = text.substr(path.size() + 2);
        input.warnings.push_back(text);
    }
    if (input.page_count == 0 && !input.warnings.empty()) {
        throw std::runtime_error(path + ": the PDF is damaged beyond repair: no page could be recovered (" +
                                 input.warnings.front() + ")");
    }
    return input;
}

}  // namespace

InputModels readInputModels(const std::string& path) { return readInputModels(path, readWholeFile(path)); }

InputModels readInputModels(const std::string& path, std::vector<uint8_t> bytes) {
    const uint64_t fileBytes = bytes.size();
    if (startsWith(bytes, "PRC")) {
        InputModels input;
        input.kind = InputKind::Prc;
        input.file_bytes = fileBytes;
        ModelSource model;
        model.places.push_back(ModelPlace{});
        model.kind = StreamKind::Prc;
        model.declared_subtype = "PRC";
        if (bytes.size() > kMaxModelBytes) {
            model.kind = StreamKind::Unreadable;
            model.problem = "the PRC file is larger than 2 GiB, more than the worker takes";
        } else {
            model.bytes = std::move(bytes);
        }
        input.models.push_back(std::move(model));
        return input;
    }
    if (looksLikePdf(bytes)) {
        InputModels input = readPdfModels(path, bytes);
        input.file_bytes = fileBytes;
        return input;
    }
    if (bytes.empty()) throw std::runtime_error(path + ": the file is empty");
    throw std::runtime_error(path + ": neither a PDF nor a PRC file");
}

std::string describePlace(const ModelPlace& place) {
    const std::string page = "page " + std::to_string(place.page) + ", ";
    const std::string annotation = std::to_string(place.annotation);
    std::string text;
    switch (place.kind) {
        case PlaceKind::PrcFile: return "the PRC file";
        case PlaceKind::Annotation3d: text = page + "3D annotation " + annotation; break;
        case PlaceKind::RichMedia:
            text = page + "RichMedia annotation " + annotation + ", configuration " + std::to_string(place.configuration);
            if (!place.configuration_name.empty()) text += " (" + place.configuration_name + ")";
            text += ", instance " + std::to_string(place.instance);
            if (!place.file_name.empty()) text += ", asset '" + place.file_name + "'";
            break;
        case PlaceKind::FileAttachment: text = page + "file attachment annotation " + annotation + ", '" + place.file_name + "'"; break;
        case PlaceKind::EmbeddedFile: return "attached file '" + place.file_name + "'";
    }
    return text;
}

std::string describeSource(const ModelSource& source) {
    std::string text = describePlace(source.place());
    if (source.place().kind == PlaceKind::PrcFile) return text;
    std::vector<std::string> objects;
    if (!source.place().annotation_object.empty()) objects.push_back("object " + source.place().annotation_object);
    const bool file = source.place().kind != PlaceKind::Annotation3d;
    if (!source.stream_object.empty()) objects.push_back((file ? "embedded file " : "3D stream ") + source.stream_object);
    for (size_t i = 0; i < objects.size(); ++i) text += (i == 0 ? " (" : ", ") + objects[i];
    if (!objects.empty()) text += ")";
    return text;
}

std::string placeSuffix(const ModelPlace& place) {
    switch (place.kind) {
        case PlaceKind::PrcFile: return "";
        case PlaceKind::EmbeddedFile: return "-e" + std::to_string(place.attachment);
        case PlaceKind::RichMedia:
            return "-p" + std::to_string(place.page) + "-a" + std::to_string(place.annotation) + "-c" +
                   std::to_string(place.configuration) + "-i" + std::to_string(place.instance);
        default: return "-p" + std::to_string(place.page) + "-a" + std::to_string(place.annotation);
    }
}

}  // namespace extract
