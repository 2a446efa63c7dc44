// What a DomWriter receives.

#include <string>

#include <gtest/gtest.h>

#include "RecordingDomWriter.h"
#include "moxidom/MOXIDOM.h"

namespace {

TEST(DomWriterOutput, OnlyTheThreeWriteOperationsCarryOutput) {
    MOXIDOM_Document doc;
    MOXIDOM_Element root = doc.createElementNS("urn:a", "a:root");
    doc.appendChild(root);
    root.appendText("x");
    doc.appendChild(doc.createComment("tail"));

    RecordingDomWriter writer;
    MOXIDOM_Helper::write(doc, writer);
    EXPECT_EQ(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
        "<a:root xmlns:a=\"urn:a\">x</a:root>\r\n"
        "<!--tail-->\r\n",
        writer.output());
    EXPECT_EQ(3u, writer.count(RecordingDomWriter::NEWLINE)) << "after the declaration and each top-level node";
    EXPECT_EQ(writer.calls.size(), writer.count(RecordingDomWriter::NEWLINE) + writer.count(RecordingDomWriter::DATA) +
                                       writer.count(RecordingDomWriter::TEXT));

    RecordingDomWriter elementOnly;
    MOXIDOM_Helper::write(root, elementOnly);
    EXPECT_EQ("<a:root xmlns:a=\"urn:a\">x</a:root>", elementOnly.output());
    EXPECT_EQ(0u, elementOnly.count(RecordingDomWriter::NEWLINE));
    EXPECT_EQ(1u, elementOnly.calls.size()) << "small output arrives in one piece";
}

TEST(DomWriterOutput, LargeOutputArrivesInFewWholeCharacterPieces) {
    // Four-byte characters throughout, so buffer boundaries fall inside
    // surrogate pairs on the way.
    const std::string smile = "\xf0\x9f\x98\x80";
    MOXIDOM_Document doc;
    MOXIDOM_Element root = doc.createElement("r");
    doc.appendChild(root);
    std::string expected = "<r>";
    for (int i = 0; i < 5000; ++i) {
        const std::string text = smile + std::to_string(i) + smile + smile;
        root.appendElementNS("", "i").appendText(text);
        expected += "<i>" + text + "</i>";
    }
    expected += "</r>";

    RecordingDomWriter writer;
    MOXIDOM_Helper::write(root, writer);
    EXPECT_EQ(expected, writer.output());
    EXPECT_LT(writer.calls.size(), expected.size() / 4096 + 2) << "buffered, not one write per piece";
    for (const RecordingDomWriter::Call& c : writer.calls) {
        ASSERT_FALSE(c.bytes.empty());
        EXPECT_NE(0x80, static_cast<unsigned char>(c.bytes.front()) & 0xC0) << "a piece starts inside a character";
        EXPECT_LE(c.bytes.size(), 16u * 1024);
    }
}

// A writer that only supplies the counted write keeps the base's other two.
class CountedOnlyWriter : public DomWriter {
public:
    using DomWriter::write;
    void write(const char* data, unsigned int length) override { out.append(data, length); }
    std::string out;
};

TEST(DomWriterOutput, BaseClassDefaults) {
    CountedOnlyWriter w;
    EXPECT_STREQ("UTF-8", w.getOutputEncoding());
    w.write("abc");
    w.write(static_cast<const char*>(nullptr));
    w.writeNewLine();
    EXPECT_EQ("abc\n", w.out);

    MOXIDOM_Document doc = MOXIDOM_Document::parseString("<a/>");
    MOXIDOM_Helper::write(doc, w);
    EXPECT_EQ(MOXIDOM_Helper::toString(doc), w.out.substr(4));
}

}  // namespace
