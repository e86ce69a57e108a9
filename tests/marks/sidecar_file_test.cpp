#include "marks/sidecar_file.h"

#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <libxml/tree.h>

#include "marks/xml_document.h"
#include "settings/settings.h"
#include "support/command_output.h"
#include "support/temp_folder.h"

namespace orvanta::marks {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::TempFolder;
using test::TestDataFolder;

constexpr MarkTime kTime{2026, 11, 23, 14, 5, 9, 37};

Bytes BytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string TextOf(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

Bytes ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

MarkRequest Rating(std::uint32_t stars) {
    return MarkRequest{stars, false, 0, false, nullptr};
}
MarkRequest Label(std::uint32_t index, std::uint32_t convention) {
    return MarkRequest{index, true, convention, false, nullptr};
}

std::string Updated(std::string_view sidecar, const MarkRequest& request) {
    Bytes out;
    EXPECT_EQ(UpdateSidecarText(BytesOf(sidecar), request, kTime, out), S_OK);
    return TextOf(out);
}

metadata::SidecarMarks Read(std::string_view text, Result expected = S_OK) {
    metadata::SidecarMarks marks;
    EXPECT_EQ(ReadSidecarText(BytesOf(text), marks), expected) << text;
    return marks;
}

std::size_t Count(const XmlDocument& doc, const char* expression) {
    return doc.Select(expression).size();
}

constexpr std::string_view kHead =
    "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF "
    "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">";
constexpr std::string_view kTail = "</rdf:RDF></x:xmpmeta>";

std::string Sidecar(std::string_view descriptions) {
    return std::string(kHead) + std::string(descriptions) + std::string(kTail);
}

TEST(NewSidecar, RatingHoldsStarsAndPercentInTwoDescriptions) {
    const std::string text = NewSidecarText(Rating(3), kTime);
    const XmlDocument doc(BytesOf(text));
    ASSERT_TRUE(doc.Loaded());
    EXPECT_EQ(Count(doc, "/x:xmpmeta/rdf:RDF/rdf:Description"), 2u);
    EXPECT_EQ(NodeText(doc.SelectFirst("//rdf:Description[1]/xmp:Rating")), "3");
    EXPECT_EQ(NodeText(doc.SelectFirst("//rdf:Description[2]/MicrosoftPhoto:Rating")), "50");
    EXPECT_EQ(NodeText(doc.SelectFirst("//xmp:MetadataDate")), "2026-11-23T14:05:09.37+00:00");
    EXPECT_EQ(NodeText(doc.SelectFirst("/x:xmpmeta/@x:xmptk")), ToolkitText());
    const auto marks = Read(text);
    EXPECT_EQ(marks.rating, 3);
    EXPECT_EQ(marks.ratingPercent, 50);
    EXPECT_EQ(marks.label, -1);
}

TEST(NewSidecar, LabelUnderSecondConventionCarriesUrgencyByteForByte) {
    const std::string expected =
        "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"" + std::string(ToolkitText()) +
        "\"><rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description "
        "rdf:about=\"\" xmlns:photoshop=\"http://ns.adobe.com/photoshop/1.0/\"><photoshop:Urgency>"
        "2</photoshop:Urgency></rdf:Description><rdf:Description rdf:about=\"\" "
        "xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"><xmp:MetadataDate>2026-11-23T14:05:09.37+00:"
        "00</xmp:MetadataDate><xmp:Label>Orange</xmp:Label></rdf:Description></rdf:RDF></"
        "x:xmpmeta>";
    EXPECT_EQ(NewSidecarText(Label(2, 1), kTime), expected);
}

TEST(UpdateSidecar, LabelUnderSecondConventionAlsoSetsUrgency) {
    const std::string text = Updated(NewSidecarText(Rating(4), kTime), Label(2, 1));
    settings::LabellingConvention.Set(1);
    const auto marks = Read(text);
    EXPECT_EQ(marks.label, 2);
    EXPECT_EQ(marks.urgency, 2);
    EXPECT_EQ(marks.rating, 4);
    settings::LabellingConvention.Set(0);
}

TEST(UpdateSidecar, AttributeFormStaysAttribute) {
    const std::string text = Updated(Sidecar("<rdf:Description rdf:about=\"\" "
                                             "xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" "
                                             "xmp:Rating=\"2\"/>"),
                                     Rating(5));
    const XmlDocument doc(BytesOf(text));
    EXPECT_EQ(NodeText(doc.SelectFirst("//rdf:Description/@xmp:Rating")), "5");
    EXPECT_EQ(Count(doc, "//xmp:Rating"), 0u);
    EXPECT_EQ(NodeText(doc.SelectFirst("//MicrosoftPhoto:Rating")), "99");
}

TEST(UpdateSidecar, NewPropertyTakesTheFilesPrefixForTheNamespace) {
    const std::string text = Updated(Sidecar("<rdf:Description rdf:about=\"\" "
                                             "xmlns:xap=\"http://ns.adobe.com/xap/1.0/\">"
                                             "<xap:CreateDate>2005</xap:CreateDate>"
                                             "</rdf:Description>"),
                                     Label(1, 0));
    EXPECT_NE(text.find("<xap:Label>Red</xap:Label>"), std::string::npos) << text;
    EXPECT_NE(text.find("<xap:MetadataDate>"), std::string::npos) << text;
    EXPECT_EQ(text.find("xmlns:xmp="), std::string::npos) << text;
    const XmlDocument doc(BytesOf(text));
    EXPECT_EQ(Count(doc, "/x:xmpmeta/rdf:RDF/rdf:Description"), 1u);
}

TEST(UpdateSidecar, ClearingTheRatingRemovesDescriptionsLeftEmpty) {
    const std::string created = NewSidecarText(Rating(3), kTime);
    const std::string cleared = Updated(created, Rating(0));
    const XmlDocument doc(BytesOf(cleared));
    // The percent's own description goes; the other still holds the date.
    EXPECT_EQ(Count(doc, "/x:xmpmeta/rdf:RDF/rdf:Description"), 1u);
    EXPECT_EQ(Count(doc, "//xmp:Rating | //MicrosoftPhoto:Rating"), 0u);
    Read(cleared, S_FALSE);

    const std::string onlyRating = Sidecar(
        "<rdf:Description rdf:about=\"\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\">"
        "<dc:format>image/jpeg</dc:format></rdf:Description>"
        "<rdf:Description rdf:about=\"\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" "
        "xmp:Rating=\"4\"/>");
    const XmlDocument after(BytesOf(Updated(onlyRating, Rating(0))));
    EXPECT_EQ(Count(after, "//rdf:Description[@xmp:Rating]"), 0u);
    EXPECT_EQ(NodeText(after.SelectFirst("//*[local-name()='format']")), "image/jpeg");
}

TEST(UpdateSidecar, RefusesWhatIsNoSidecar) {
    Bytes out;
    for (std::string_view bad : {"", "<x:xmpmeta", "not xml at all", "<a><b/></a>",
                                 "<x:xapmeta xmlns:x=\"adobe:ns:meta/\"/>"}) {
        EXPECT_EQ(UpdateSidecarText(BytesOf(bad), Rating(2), kTime, out), E_UNEXPECTED) << bad;
        EXPECT_TRUE(out.empty());
    }
    // x:xmpmeta without rdf:RDF gets one.
    const std::string text = Updated("<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>", Rating(2));
    EXPECT_EQ(Read(text).rating, 2);
}

struct ValueCase {
    const char* sidecar;
    metadata::SidecarMarks expected;
    Result result;
};

class ReadSidecarValues : public testing::TestWithParam<ValueCase> {};

TEST_P(ReadSidecarValues, FollowTheValueRules) {
    const auto marks = Read(Sidecar(GetParam().sidecar), GetParam().result);
    EXPECT_EQ(marks.ratingPercent, GetParam().expected.ratingPercent);
    EXPECT_EQ(marks.rating, GetParam().expected.rating);
    EXPECT_EQ(marks.label, GetParam().expected.label);
    EXPECT_EQ(marks.urgency, GetParam().expected.urgency);
}

#define XMP_DESC "<rdf:Description rdf:about=\"\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" "
#define MP_DESC \
    "<rdf:Description rdf:about=\"\" xmlns:MicrosoftPhoto=\"http://ns.microsoft.com/photo/1.0\" "
#define PS_DESC \
    "<rdf:Description rdf:about=\"\" xmlns:photoshop=\"http://ns.adobe.com/photoshop/1.0/\" "

INSTANTIATE_TEST_SUITE_P(
    Values, ReadSidecarValues,
    testing::Values(
        ValueCase{XMP_DESC "xmp:Rating=\"-1\"/>", {-1, -1, -1, -1}, S_FALSE},
        ValueCase{
            XMP_DESC "><xmp:Rating>0</xmp:Rating></rdf:Description>", {-1, -1, -1, -1}, S_FALSE},
        ValueCase{
            XMP_DESC "><xmp:Rating>3.0</xmp:Rating></rdf:Description>", {-1, 3, -1, -1}, S_OK},
        ValueCase{
            XMP_DESC "><xmp:Rating>6</xmp:Rating></rdf:Description>", {-1, -1, -1, -1}, S_FALSE},
        ValueCase{MP_DESC "MicrosoftPhoto:Rating=\"150\"/>", {99, -1, -1, -1}, S_OK},
        ValueCase{MP_DESC "MicrosoftPhoto:Rating=\"-5\"/>", {-1, -1, -1, -1}, S_FALSE},
        ValueCase{MP_DESC "MicrosoftPhoto:Rating=\"none\"/>", {-1, -1, -1, -1}, S_FALSE},
        ValueCase{
            XMP_DESC "><xmp:Label>purple</xmp:Label></rdf:Description>", {-1, -1, 5, -1}, S_OK},
        ValueCase{PS_DESC "photoshop:Urgency=\"10\"/>", {-1, -1, -1, -1}, S_FALSE},
        ValueCase{PS_DESC "><photoshop:Urgency>8</photoshop:Urgency></rdf:Description>",
                  {-1, -1, -1, 8},
                  S_OK},
        // The element form wins over an attribute elsewhere.
        ValueCase{XMP_DESC "xmp:Rating=\"2\"/>" XMP_DESC "><xmp:Rating>4</xmp:Rating>"
                           "</rdf:Description>",
                  {-1, 4, -1, -1},
                  S_OK}));

TEST(ReadSidecar, NeverExpandsExternalEntities) {
    TempFolder folder;
    const auto secret = folder / "secret.txt";
    std::ofstream(secret) << "Red";
    const std::string text = "<!DOCTYPE x:xmpmeta [<!ENTITY leak SYSTEM \"file://" +
                             secret.string() + "\">]>" +
                             Sidecar(XMP_DESC "><xmp:Label>&leak;</xmp:Label></rdf:Description>");
    metadata::SidecarMarks marks;
    ReadSidecarText(BytesOf(text), marks).Succeeded();
    EXPECT_EQ(marks.label, -1);
}

TEST(SidecarFiles, ReaderFindsTheSidecarBesideThePicture) {
    TempFolder folder;
    metadata::SidecarMarks marks;
    EXPECT_EQ(ReadSidecarFile(folder / "IMG_1.CR2", marks), S_FALSE);
    ASSERT_EQ(CreateSidecarFile(folder / "IMG_1.xmp", Rating(5), kTime), S_OK);
    EXPECT_EQ(ReadSidecarFile(folder / "IMG_1.CR2", marks), S_OK);
    EXPECT_EQ(marks.rating, 5);
    ASSERT_EQ(UpdateSidecarFile(folder / "IMG_1.xmp", Rating(1), kTime), S_OK);
    EXPECT_EQ(ReadSidecarFile(folder / "IMG_1.JPG", marks), S_OK);
    EXPECT_EQ(marks.rating, 1);
    EXPECT_EQ(marks.ratingPercent, 1);
    // Nothing left beside it but the sidecar.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1);
}

TEST(SidecarFiles, BrokenSidecarIsNeverOverwritten) {
    TempFolder folder;
    const auto path = folder / "IMG_2.xmp";
    const std::string broken = Sidecar(XMP_DESC "><xmp:Rating>2</xmp:Rat");
    std::ofstream(path, std::ios::binary) << broken;
    EXPECT_EQ(UpdateSidecarFile(path, Rating(4), kTime), E_UNEXPECTED);
    EXPECT_EQ(TextOf(ReadAll(path)), broken);
    metadata::SidecarMarks marks;
    EXPECT_EQ(ReadSidecarFile(folder / "IMG_2.JPG", marks), E_UNEXPECTED);
}

// Every value of a document (leaf elements with text, attributes other than rdf:about), with
// the namespace URIs of its path, except the marks this program writes.
std::multiset<std::string> Facts(const XmlDocument& doc) {
    static const std::set<std::string> marks = {"Rating", "Label", "Urgency", "MetadataDate"};
    std::multiset<std::string> facts;
    auto name = [](xmlNodePtr node) {
        const std::string uri =
            node->ns != nullptr ? reinterpret_cast<const char*>(node->ns->href) : "";
        return uri + "|" + reinterpret_cast<const char*>(node->name);
    };
    auto walk = [&](auto& self, xmlNodePtr node, const std::string& path) -> void {
        for (; node != nullptr; node = node->next) {
            if (node->type != XML_ELEMENT_NODE ||
                marks.count(reinterpret_cast<const char*>(node->name)) != 0) {
                continue;
            }
            const std::string here = path + "/" + name(node);
            bool leaf = true;
            for (xmlNodePtr child = node->children; child != nullptr; child = child->next) {
                leaf = leaf && child->type != XML_ELEMENT_NODE;
            }
            if (leaf && !xmlIsBlankNode(node->children)) {
                facts.insert(here + "=" + NodeText(node));
            }
            for (xmlAttrPtr a = node->properties; a != nullptr; a = a->next) {
                const auto attribute = reinterpret_cast<xmlNodePtr>(a);
                if (marks.count(reinterpret_cast<const char*>(a->name)) == 0 &&
                    !HasName(attribute, "about", kRdfNamespace)) {
                    facts.insert(here + "/@" + name(attribute) + "=" + NodeText(attribute));
                }
            }
            self(self, node->children, here);
        }
    };
    walk(walk, xmlDocGetRootElement(doc.Doc()), "");
    return facts;
}

class OtherToolsSidecar : public testing::TestWithParam<std::string> {};

TEST_P(OtherToolsSidecar, KeepsEverythingElse) {
    const auto folder = TestDataFolder() / "xmp-sidecars";
    if (TestDataFolder().empty() || !std::filesystem::exists(folder)) {
        GTEST_SKIP() << "no test data";
    }
    TempFolder work;
    const auto path = work / "picture.xmp";
    std::filesystem::copy_file(folder / GetParam(), path);
    std::filesystem::permissions(path, std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add);
    const Bytes original = ReadAll(path);
    ASSERT_EQ(UpdateSidecarFile(path, Rating(4), kTime), S_OK);
    ASSERT_EQ(UpdateSidecarFile(path, Label(3, 0), kTime), S_OK);
    ASSERT_EQ(UpdateSidecarFile(path, MarkRequest{6, false, 0, true, nullptr}, kTime), S_OK);
    const XmlDocument before(original);
    const XmlDocument after(ReadAll(path));
    ASSERT_TRUE(before.Loaded());
    ASSERT_TRUE(after.Loaded());
    EXPECT_EQ(Facts(after), Facts(before));
    metadata::SidecarMarks marks;
    EXPECT_EQ(ReadSidecarFile(work / "picture.JPG", marks), S_OK);
    EXPECT_EQ(marks.rating, 4);
    EXPECT_EQ(marks.label, 3);
    EXPECT_EQ(marks.urgency, 6);

    if (test::HaveCommand("exiftool -ver")) {
        EXPECT_EQ(test::CommandOutput("exiftool -s3 -XMP:Rating -XMP:Label -XMP:Urgency '" +
                                      path.string() + "'"),
                  "4\nGreen\n6\n")
            << GetParam();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, OtherToolsSidecar,
    testing::Values("adobe-xmpcore_element-form_rating4.xmp", "aphotomanager.xmp",
                    "darktable_rating3.xmp", "darktable_rejected.xmp", "digikam-5.4.0.xmp",
                    "fstop_favorite.xmp", "jphototagger.xmp", "lightroom-4.1_utf16.xmp",
                    "lightroom-6.14_via-exiftool_rating1.xmp", "photoshop-cs2_xap-prefix.xmp"),
    [](const testing::TestParamInfo<std::string>& info) {
        std::string name;
        for (char c : info.param.substr(0, info.param.size() - 4)) {
            name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        }
        return name;
    });

}  // namespace
}  // namespace orvanta::marks
