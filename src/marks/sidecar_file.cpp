#include "marks/sidecar_file.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <optional>
#include <string_view>

#include "marks/labels.h"
#include "marks/replace_file.h"
#include "marks/xml_document.h"
#include "platform/imaging/file_bytes.h"

namespace orvanta::marks {

namespace {

const xmlChar* X(std::string_view text) {
    return reinterpret_cast<const xmlChar*>(text.data());
}

struct Property {
    const char* element;
    const char* attribute;
    std::string_view uri;
    const char* prefix;  // for a new namespace declaration
    const char* name;
};

constexpr Property kStars{"/x:xmpmeta/rdf:RDF/rdf:Description/xmp:Rating",
                          "/x:xmpmeta/rdf:RDF/rdf:Description/@xmp:Rating", kXmpNamespace, "xmp",
                          "Rating"};
constexpr Property kPercent{"/x:xmpmeta/rdf:RDF/rdf:Description/MicrosoftPhoto:Rating",
                            "/x:xmpmeta/rdf:RDF/rdf:Description/@MicrosoftPhoto:Rating",
                            kPercentNamespace, "MicrosoftPhoto", "Rating"};
constexpr Property kLabel{"/x:xmpmeta/rdf:RDF/rdf:Description/xmp:Label",
                          "/x:xmpmeta/rdf:RDF/rdf:Description/@xmp:Label", kXmpNamespace, "xmp",
                          "Label"};
constexpr Property kUrgency{"/x:xmpmeta/rdf:RDF/rdf:Description/photoshop:Urgency",
                            "/x:xmpmeta/rdf:RDF/rdf:Description/@photoshop:Urgency",
                            kPhotoshopNamespace, "photoshop", "Urgency"};

// A leading decimal number as other tools write it ("3", " 3", "+3", "3.0"); nothing for
// text without digits.
std::optional<long> DecimalOf(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) {
        ++at;
    }
    bool negative = false;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        negative = text[at] == '-';
        ++at;
    }
    if (at >= text.size() || !std::isdigit(static_cast<unsigned char>(text[at]))) {
        return std::nullopt;
    }
    long value = 0;
    for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])); ++at) {
        value = std::min<long>(value * 10 + (text[at] - '0'), INT_MAX);
    }
    return negative ? -value : value;
}

std::int16_t InRange(std::optional<long> value, long low, long high) {
    return value && *value >= low && *value <= high ? static_cast<std::int16_t>(*value) : -1;
}

xmlNodePtr Find(const XmlDocument& doc, const Property& property) {
    if (xmlNodePtr node = doc.SelectFirst(property.element)) {
        return node;
    }
    return doc.SelectFirst(property.attribute);
}

bool IsBlankText(xmlNodePtr node) {
    return node->type == XML_TEXT_NODE && xmlIsBlankNode(node);
}

// Takes the indentation in front of a removed element with it.
void RemoveElement(xmlNodePtr node) {
    if (node->prev != nullptr && IsBlankText(node->prev)) {
        xmlNodePtr blank = node->prev;
        xmlUnlinkNode(blank);
        xmlFreeNode(blank);
    }
    xmlUnlinkNode(node);
    xmlFreeNode(node);
}

// A description left with nothing but its about attribute (namespace declarations are no
// attributes here) describes nothing.
bool IsEmptyDescription(xmlNodePtr description) {
    for (xmlNodePtr child = description->children; child != nullptr; child = child->next) {
        if (!IsBlankText(child)) {
            return false;
        }
    }
    for (xmlAttrPtr attribute = description->properties; attribute != nullptr;
         attribute = attribute->next) {
        if (!HasName(reinterpret_cast<xmlNodePtr>(attribute), "about", kRdfNamespace)) {
            return false;
        }
    }
    return true;
}

struct Declaring {
    xmlNodePtr description = nullptr;
    xmlNsPtr ns = nullptr;
};

// The first description that declares `uri` itself, else the first one within whose scope
// it is declared.
Declaring FindDeclaring(const XmlDocument& doc, std::string_view uri) {
    const auto descriptions = doc.Select("/x:xmpmeta/rdf:RDF/rdf:Description");
    for (xmlNodePtr description : descriptions) {
        for (xmlNsPtr ns = description->nsDef; ns != nullptr; ns = ns->next) {
            if (ns->href != nullptr && uri == reinterpret_cast<const char*>(ns->href) &&
                ns->prefix != nullptr) {
                return {description, ns};
            }
        }
    }
    for (xmlNodePtr description : descriptions) {
        xmlNsPtr ns = xmlSearchNsByHref(doc.Doc(), description, X(uri));
        if (ns != nullptr && ns->prefix != nullptr) {
            return {description, ns};
        }
    }
    return {};
}

Declaring NewDescription(xmlNodePtr rdf, const Property& property) {
    xmlNodePtr description = xmlNewChild(rdf, rdf->ns, X("Description"), nullptr);
    if (description == nullptr) {
        throw ResultError(E_OUTOFMEMORY);
    }
    xmlNewNsProp(description, rdf->ns, X("about"), X(""));
    xmlNsPtr ns = xmlNewNs(description, X(property.uri), X(property.prefix));
    if (ns == nullptr) {
        throw ResultError(E_OUTOFMEMORY);
    }
    return {description, ns};
}

void Clear(const XmlDocument& doc, const Property& property) {
    // Every copy goes, so that a second one elsewhere cannot bring the mark back.
    std::vector<xmlNodePtr> holders;
    for (xmlNodePtr node : doc.Select(property.element)) {
        holders.push_back(node->parent);
        RemoveElement(node);
    }
    for (xmlNodePtr node : doc.Select(property.attribute)) {
        holders.push_back(node->parent);
        xmlRemoveProp(reinterpret_cast<xmlAttrPtr>(node));
    }
    for (std::size_t i = 0; i < holders.size(); ++i) {
        const bool seen = std::find(holders.begin(), holders.begin() + static_cast<long>(i),
                                    holders[i]) != holders.begin() + static_cast<long>(i);
        if (!seen && IsEmptyDescription(holders[i])) {
            RemoveElement(holders[i]);
        }
    }
}

void Set(const XmlDocument& doc, xmlNodePtr rdf, const Property& property,
         const std::string& value) {
    if (value.empty()) {
        Clear(doc, property);
        return;
    }
    if (xmlNodePtr node = Find(doc, property)) {
        xmlNodeSetContent(node, X(value));
        return;
    }
    Declaring target = FindDeclaring(doc, property.uri);
    if (target.description == nullptr) {
        target = NewDescription(rdf, property);
    }
    if (xmlNewTextChild(target.description, target.ns, X(property.name), X(value)) == nullptr) {
        throw ResultError(E_OUTOFMEMORY);
    }
}

void SetMetadataDate(const XmlDocument& doc, xmlNodePtr rdf, const MarkTime& time) {
    const std::string date = MetadataDateText(time);
    Declaring target = FindDeclaring(doc, kXmpNamespace);
    if (target.description == nullptr) {
        target = NewDescription(rdf, kStars);
    }
    for (xmlNodePtr child = target.description->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && HasName(child, "MetadataDate", kXmpNamespace)) {
            xmlNodeSetContent(child, X(date));
            return;
        }
    }
    if (xmlAttrPtr attribute =
            xmlHasNsProp(target.description, X("MetadataDate"), X(kXmpNamespace))) {
        xmlSetNsProp(target.description, attribute->ns, X("MetadataDate"), X(date));
        return;
    }
    if (xmlNewTextChild(target.description, target.ns, X("MetadataDate"), X(date)) == nullptr) {
        throw ResultError(E_OUTOFMEMORY);
    }
}

// Finds "/x:xmpmeta/rdf:RDF", adding rdf:RDF to an x:xmpmeta that has none.
xmlNodePtr RdfElement(const XmlDocument& doc) {
    if (xmlNodePtr rdf = doc.SelectFirst("/x:xmpmeta/rdf:RDF")) {
        return rdf;
    }
    xmlNodePtr meta = doc.SelectFirst("/x:xmpmeta");
    if (meta == nullptr) {
        return nullptr;
    }
    xmlNodePtr rdf = xmlNewChild(meta, nullptr, X("RDF"), nullptr);
    if (rdf == nullptr) {
        throw ResultError(E_OUTOFMEMORY);
    }
    xmlNsPtr ns = xmlSearchNsByHref(doc.Doc(), meta, X(kRdfNamespace));
    if (ns == nullptr || ns->prefix == nullptr) {
        ns = xmlNewNs(rdf, X(kRdfNamespace), X("rdf"));
    }
    xmlSetNs(rdf, ns);
    return rdf;
}

std::string Decimal(std::uint32_t value) {
    return value == 0 ? std::string() : std::to_string(value);
}

void ApplyRequest(const XmlDocument& doc, xmlNodePtr rdf, const MarkRequest& request,
                  const MarkTime& time) {
    if (request.isLabel) {
        if (request.convention == 1) {
            Set(doc, rdf, kUrgency, Decimal(request.value));
        }
        const auto name = LabelName(static_cast<std::int32_t>(request.value), request.convention);
        Set(doc, rdf, kLabel, std::string(name));
        SetMetadataDate(doc, rdf, time);
    } else if (request.isUrgency) {
        Set(doc, rdf, kUrgency, Decimal(request.value));
    } else {
        Set(doc, rdf, kStars, Decimal(request.value));
        SetMetadataDate(doc, rdf, time);
        const int percent = PercentFromStars(request.value);
        Set(doc, rdf, kPercent, percent == 0 ? std::string() : std::to_string(percent));
    }
}

}  // namespace

std::filesystem::path SidecarPathOf(const std::filesystem::path& picture) {
    std::filesystem::path sidecar = picture;
    sidecar.replace_extension(".xmp");
    return sidecar;
}

Result ReadSidecarText(std::span<const std::uint8_t> text, metadata::SidecarMarks& marks) {
    const XmlDocument doc(text);
    if (!doc.Loaded()) {
        return E_UNEXPECTED;
    }
    bool found = false;
    auto store = [&found](std::int16_t& field, std::int16_t value) {
        field = value;
        found = found || value != -1;
    };
    if (xmlNodePtr node = Find(doc, kStars)) {
        store(marks.rating, InRange(DecimalOf(NodeText(node)), 1, 5));
    }
    if (xmlNodePtr node = Find(doc, kPercent)) {
        const auto percent = DecimalOf(NodeText(node));
        store(marks.ratingPercent, percent && *percent >= 0
                                       ? static_cast<std::int16_t>(std::min<long>(*percent, 99))
                                       : std::int16_t{-1});
    }
    if (xmlNodePtr node = Find(doc, kLabel)) {
        store(marks.label, static_cast<std::int16_t>(LabelIndexFromName(NodeText(node))));
    }
    if (xmlNodePtr node = Find(doc, kUrgency)) {
        store(marks.urgency, InRange(DecimalOf(NodeText(node)), 1, 9));
    }
    return found ? S_OK : S_FALSE;
}

Result ReadSidecarFile(const std::filesystem::path& picture, metadata::SidecarMarks& marks) {
    std::shared_ptr<const imaging::FileBytes> bytes;
    const Result read = imaging::FileBytes::Read(SidecarPathOf(picture), bytes);
    if (read == HresultFromWin32(ERROR_FILE_NOT_FOUND) ||
        read == HresultFromWin32(ERROR_PATH_NOT_FOUND)) {
        return S_FALSE;
    }
    if (read.Failed()) {
        return read;
    }
    return ReadSidecarText(bytes->Bytes(), marks);
}

void InstallSidecarReader() {
    metadata::SetSidecarMarksReader(&ReadSidecarFile);
}

std::string NewSidecarText(const MarkRequest& request, const MarkTime& time) {
    const bool urgency =
        (request.isUrgency || request.convention == 1 || request.convention == 2) &&
        request.value != 0;
    std::string text = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"";
    text += ToolkitText();
    text += "\"><rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">";
    if (urgency) {
        text +=
            "<rdf:Description rdf:about=\"\" "
            "xmlns:photoshop=\"http://ns.adobe.com/photoshop/1.0/\"><photoshop:Urgency>";
        text += std::to_string(request.value);
        text += "</photoshop:Urgency></rdf:Description>";
    }
    text +=
        "<rdf:Description rdf:about=\"\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\">"
        "<xmp:MetadataDate>";
    text += MetadataDateText(time);
    text += "</xmp:MetadataDate>";
    if (request.isLabel) {
        text += "<xmp:Label>";
        text += LabelName(static_cast<std::int32_t>(request.value), request.convention);
        text += "</xmp:Label></rdf:Description></rdf:RDF></x:xmpmeta>";
    } else if (request.isUrgency) {
        text += "</rdf:Description></rdf:RDF></x:xmpmeta>";
    } else {
        text += "<xmp:Rating>" + std::to_string(request.value) +
                "</xmp:Rating></rdf:Description><rdf:Description rdf:about=\"\" "
                "xmlns:MicrosoftPhoto=\"http://ns.microsoft.com/photo/1.0\"><MicrosoftPhoto:"
                "Rating>" +
                std::to_string(PercentFromStars(request.value)) +
                "</MicrosoftPhoto:Rating></rdf:Description></rdf:RDF></x:xmpmeta>";
    }
    return text;
}

Result UpdateSidecarText(std::span<const std::uint8_t> text, const MarkRequest& request,
                         const MarkTime& time, std::vector<std::uint8_t>& updated) {
    updated.clear();
    const XmlDocument doc(text);
    if (!doc.Loaded()) {
        return E_UNEXPECTED;
    }
    try {
        xmlNodePtr rdf = RdfElement(doc);
        if (rdf == nullptr) {
            return E_UNEXPECTED;
        }
        ApplyRequest(doc, rdf, request, time);
    } catch (const ResultError& failed) {
        return failed.GetResult();
    }
    updated = doc.Serialise();
    return updated.empty() ? E_OUTOFMEMORY : S_OK;
}

Result CreateSidecarFile(const std::filesystem::path& sidecar, const MarkRequest& request,
                         const MarkTime& time) {
    const std::string text = NewSidecarText(request, time);
    return ReplaceFile(sidecar, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

Result UpdateSidecarFile(const std::filesystem::path& sidecar, const MarkRequest& request,
                         const MarkTime& time) {
    std::shared_ptr<const imaging::FileBytes> bytes;
    if (const Result read = imaging::FileBytes::Read(sidecar, bytes); read.Failed()) {
        return read;
    }
    std::vector<std::uint8_t> updated;
    if (const Result changed = UpdateSidecarText(bytes->Bytes(), request, time, updated);
        changed.Failed()) {
        return changed;
    }
    ReplaceOptions options;
    options.keepAccess = true;
    return ReplaceFile(sidecar, updated, options);
}

}  // namespace orvanta::marks
