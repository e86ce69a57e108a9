// A parsed XMP sidecar over libxml2: the document, an XPath context with the five
// namespaces of the marks bound to their usual prefixes, and serialisation back to bytes
// the way the file came in (with or without an XML declaration). Parsing never reads the
// network or a DTD, never expands external entities and prints nothing; malformed input
// gives an empty document. One thread per document; documents on different threads are
// independent.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <libxml/tree.h>
#include <libxml/xpath.h>

namespace orvanta::marks {

inline constexpr std::string_view kMetaNamespace = "adobe:ns:meta/";
inline constexpr std::string_view kRdfNamespace = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";
inline constexpr std::string_view kXmpNamespace = "http://ns.adobe.com/xap/1.0/";
inline constexpr std::string_view kPercentNamespace = "http://ns.microsoft.com/photo/1.0";
inline constexpr std::string_view kPhotoshopNamespace = "http://ns.adobe.com/photoshop/1.0/";

class XmlDocument {
public:
    // Largest sidecar read: well above any with an embedded preview.
    static constexpr std::size_t kMaxBytes = 64u << 20;

    explicit XmlDocument(std::span<const std::uint8_t> bytes);
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    bool Loaded() const { return doc_ != nullptr && xpath_ != nullptr; }
    xmlDocPtr Doc() const { return doc_.get(); }

    // The nodes an XPath expression selects (prefixes x, rdf, xmp, MicrosoftPhoto,
    // photoshop); none for an expression that does not select nodes.
    std::vector<xmlNodePtr> Select(const char* expression) const;
    xmlNodePtr SelectFirst(const char* expression) const;

    std::vector<std::uint8_t> Serialise() const;

private:
    struct DocFree {
        void operator()(xmlDocPtr doc) const { xmlFreeDoc(doc); }
    };
    struct ContextFree {
        void operator()(xmlXPathContextPtr context) const { xmlXPathFreeContext(context); }
    };
    std::unique_ptr<xmlDoc, DocFree> doc_;
    std::unique_ptr<xmlXPathContext, ContextFree> xpath_;
    bool declaration_ = false;
};

// The text of an element or attribute; empty for none.
std::string NodeText(xmlNodePtr node);
bool InNamespace(xmlNodePtr node, std::string_view uri);
bool HasName(xmlNodePtr node, std::string_view localName, std::string_view uri);

}  // namespace orvanta::marks
