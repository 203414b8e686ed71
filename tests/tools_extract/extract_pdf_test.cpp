// Finding the 3D models of a PDF: real 3D PDFs, and PDFs built here with
// annotations of every kind the tool must tell apart.

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/tools_extract/extract_test_support.h"
#include "tools/extract/input_models.h"
#include "tools/extract/model_result.h"

namespace extract {
namespace {

using test::Annotation3d;

std::vector<uint8_t> prcBytes() { return test::readFile(test::dataFile("tet_red.prc")); }

std::string errorOf(const std::string& path) {
    try {
        readInputModels(path);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

TEST(ExtractPdfModels, TheRealPdfsHoldOnePrcModelEach) {
    struct Expected {
        const char* file;
        uint32_t authoring, fileStructures;
    };
    for (const Expected& e : {Expected{"small-part.pdf", 8137, 1}, Expected{"solidworks-2018-assembly.pdf", 17093, 26},
                              Expected{"office-editor-assembly.pdf", 15083, 4}}) {
        SCOPED_TRACE(e.file);
        const InputModels input = readInputModels(test::dataFile(e.file));
        EXPECT_EQ(input.kind, InputKind::Pdf);
        EXPECT_EQ(input.page_count, 1u);
        ASSERT_EQ(input.models.size(), 1u);
        const ModelSource& model = input.models[0];
        EXPECT_EQ(model.kind, StreamKind::Prc) << model.problem;
        EXPECT_EQ(model.page, 1u);
        EXPECT_EQ(model.annotation, 1u);
        const PrcHeaderPeek peek = peekPrcHeader(model.bytes);
        EXPECT_EQ(peek.authoring_version, e.authoring);
        EXPECT_EQ(peek.number_of_file_structures, e.fileStructures);
    }
}

TEST(ExtractPdfModels, AnnotationsAreFoundOnEveryPageDirectlyOrThroughA3dReference) {
    test::ScratchDir dir;
    const std::string path = dir.file("several.pdf");
    test::writePdf(path, {{Annotation3d{prcBytes()}, Annotation3d{prcBytes(), "PRC", true}},
                          {},
                          {Annotation3d{prcBytes(), ""}}});
    const InputModels input = readInputModels(path);
    EXPECT_EQ(input.page_count, 3u);
    ASSERT_EQ(input.models.size(), 3u);
    EXPECT_EQ(input.models[1].page, 1u);
    EXPECT_EQ(input.models[1].annotation, 2u);  // the link annotation before them does not count
    EXPECT_TRUE(input.models[1].through_reference);
    EXPECT_EQ(input.models[2].page, 3u);
    EXPECT_EQ(input.models[2].annotation, 1u);
    for (const ModelSource& model : input.models) {
        EXPECT_EQ(model.kind, StreamKind::Prc);
        EXPECT_EQ(model.bytes, prcBytes());  // the stored stream was compressed
        EXPECT_FALSE(model.stream_object.empty());
    }
    EXPECT_EQ(input.models[2].declared_subtype, "");  // recognised by content alone
    EXPECT_EQ(describeSource(input.models[0]),
              "page 1, 3D annotation 1 (object " + input.models[0].annotation_object + ", 3D stream " +
                  input.models[0].stream_object + ")");
}

TEST(ExtractPdfModels, StreamsThatCannotBeDecodedAreToldApart) {
    test::ScratchDir dir;
    const std::string path = dir.file("bad.pdf");
    const std::vector<uint8_t> u3d = {'U', '3', 'D', 0, 0, 0, 0, 0};
    const std::vector<uint8_t> junk = {'n', 'o', 't', ' ', 'P', 'R', 'C'};
    test::writePdf(path, {{Annotation3d{u3d, "U3D"}, Annotation3d{junk, "PRC"}, Annotation3d{junk, "PRC", false, "FlateDecode"},
                           Annotation3d{junk, "PRC", false, "JBIG2Decode"}}});
    const InputModels input = readInputModels(path);
    ASSERT_EQ(input.models.size(), 4u);
    const std::string stream0 = input.models[0].stream_object, stream1 = input.models[1].stream_object;
    EXPECT_EQ(input.models[0].kind, StreamKind::U3d);
    EXPECT_EQ(input.models[0].problem, "the 3D stream (object " + stream0 + ") is U3D, which is not supported (only PRC is)");
    EXPECT_EQ(input.models[1].kind, StreamKind::Unknown);
    EXPECT_EQ(input.models[1].problem, "the 3D stream (object " + stream1 + ") is not PRC data although its /Subtype is /PRC");
    EXPECT_EQ(input.models[2].kind, StreamKind::Unreadable);
    EXPECT_EQ(input.models[2].problem.rfind("the filters of the 3D stream (object " + input.models[2].stream_object +
                                                ") cannot be decoded", 0),
              0u);
    EXPECT_EQ(input.models[3].kind, StreamKind::Unreadable);
    for (const ModelSource& model : input.models) EXPECT_TRUE(model.bytes.empty());
}

TEST(ExtractPdfModels, APdfWithout3dHasNoModels) {
    test::ScratchDir dir;
    test::writePdf(dir.file("plain.pdf"), {{}, {}});
    const InputModels input = readInputModels(dir.file("plain.pdf"));
    EXPECT_EQ(input.page_count, 2u);
    EXPECT_TRUE(input.models.empty());
}

TEST(ExtractInputFiles, RawPrcAndUnreadableInputs) {
    const InputModels prc = readInputModels(test::dataFile("tet_red.prc"));
    EXPECT_EQ(prc.kind, InputKind::Prc);
    ASSERT_EQ(prc.models.size(), 1u);
    EXPECT_EQ(describeSource(prc.models[0]), "the PRC file");

    test::ScratchDir dir;
    const std::string text = dir.file("notes.txt"), empty = dir.file("empty.pdf"), broken = dir.file("broken.pdf");
    test::writeFile(text, std::string("hello"));
    test::writeFile(empty, std::string());
    test::writeFile(broken, std::string("%PDF-1.7\nthis is no PDF at all\n"));
    EXPECT_EQ(errorOf(text), text + ": neither a PDF nor a PRC file");
    EXPECT_EQ(errorOf(empty), empty + ": the file is empty");
    EXPECT_EQ(errorOf(dir.file("absent.pdf")), dir.file("absent.pdf") + ": cannot open: No such file or directory");
    EXPECT_EQ(errorOf(broken).rfind(broken + ": the PDF cannot be read: ", 0), 0u) << errorOf(broken);
}

TEST(ExtractInputFiles, ATruncatedRealPdfIsRecoveredOrRefusedButNeverMisread) {
    std::vector<uint8_t> bytes = test::readFile(test::dataFile("solidworks-2018-assembly.pdf"));
    for (size_t keep : {bytes.size() / 2, bytes.size() - 200}) {
        SCOPED_TRACE(keep);
        test::ScratchDir dir;
        const std::string path = dir.file("cut.pdf");
        test::writeFile(path, std::vector<uint8_t>(bytes.begin(), bytes.begin() + keep));
        try {
            const InputModels input = readInputModels(path);
            for (const ModelSource& model : input.models) {
                // Whatever was recovered is either whole PRC data or marked.
                EXPECT_TRUE(model.kind != StreamKind::Prc || peekPrcHeader(model.bytes).valid);
            }
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(std::string(e.what()).rfind(path + ": ", 0), 0u);
        }
    }
}

}  // namespace
}  // namespace extract
