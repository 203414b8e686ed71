#include "tools/extract/input_models.h"

#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace extract {

namespace {

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
// gigabytes).
class LimitedCollector : public Pipeline {
public:
    LimitedCollector(std::vector<uint8_t>& out, uint64_t limit) : Pipeline("3D stream", nullptr), out_(out), limit_(limit) {}
    void write(unsigned char const* data, size_t length) override {
        if (out_.size() + length > limit_) {
            too_large_ = true;
            throw std::runtime_error("3D stream larger than the limit");
        }
        out_.insert(out_.end(), data, data + length);
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

// Decodes one 3D stream and decides what it holds: by its content, which is
// what the worker will see, with the declared /Subtype as a hint for U3D.
void readModelStream(QPDFObjectHandle stream, ModelSource& model) {
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
        model.problem = "the 3D stream" + object + " decodes to more than 2 GiB, more than the worker takes";
        return;
    }
    if (!succeeded) {
        model.bytes.clear();
        model.kind = StreamKind::Unreadable;
        model.problem = "the filters of the 3D stream" + object + " cannot be decoded";
        if (!failure.empty()) model.problem += ": " + failure;
        return;
    }
    if (startsWith(model.bytes, "PRC")) {
        model.kind = StreamKind::Prc;
    } else if (startsWith(model.bytes, "U3D") || model.declared_subtype == "U3D") {
        model.kind = StreamKind::U3d;
        model.problem = "the 3D stream" + object + " is U3D, which is not supported (only PRC is)";
    } else {
        model.kind = StreamKind::Unknown;
        model.problem = "the 3D stream" + object + " is not PRC data" +
                        (model.declared_subtype.empty() ? "" : " although its /Subtype is /" + model.declared_subtype);
    }
    if (model.kind != StreamKind::Prc) model.bytes.clear();
}

void readAnnotation(QPDFObjectHandle annotation, ModelSource& model) {
    model.annotation_object = objectName(annotation);
    QPDFObjectHandle data = annotation.getKey("/3DD");
    if (data.isDictionary() && !data.isStream()) {
        // A 3D reference dictionary lets several annotations share one stream.
        model.through_reference = true;
        data = data.getKey("/3DD");
    }
    if (!data.isStream()) {
        model.kind = StreamKind::Unreadable;
        model.problem = model.through_reference ? "the 3D reference of the annotation names no 3D stream"
                                                : "the annotation has no 3D stream in /3DD";
        return;
    }
    readModelStream(data, model);
}

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
        for (size_t p = 0; p < pages.size(); ++p) {
            QPDFObjectHandle annotations = pages[p].getObjectHandle().getKey("/Annots");
            if (!annotations.isArray()) continue;
            uint32_t ordinal = 0;
            const int count = annotations.getArrayNItems();
            for (int a = 0; a < count; ++a) {
                QPDFObjectHandle annotation = annotations.getArrayItem(a);
                if (!annotation.isDictionary()) continue;
                QPDFObjectHandle subtype = annotation.getKey("/Subtype");
                if (!subtype.isName() || subtype.getName() != "/3D") continue;
                ModelSource model;
                model.page = static_cast<uint32_t>(p + 1);
                model.annotation = ++ordinal;
                readAnnotation(annotation, model);
                input.models.push_back(std::move(model));
            }
        }
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

std::string describeSource(const ModelSource& source) {
    if (source.page == 0) return "the PRC file";
    std::string text = "page " + std::to_string(source.page) + ", 3D annotation " + std::to_string(source.annotation);
    std::vector<std::string> objects;
    if (!source.annotation_object.empty()) objects.push_back("object " + source.annotation_object);
    if (!source.stream_object.empty()) objects.push_back("3D stream " + source.stream_object);
    for (size_t i = 0; i < objects.size(); ++i) text += (i == 0 ? " (" : ", ") + objects[i];
    if (!objects.empty()) text += ")";
    return text;
}

}  // namespace extract
