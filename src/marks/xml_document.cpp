#include "marks/xml_document.h"

#include <mutex>

#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlsave.h>
#include <libxml/xpathInternals.h>

namespace orvanta::marks {

namespace {

const xmlChar* X(std::string_view text) {
    return reinterpret_cast<const xmlChar*>(text.data());
}

void IgnoreError(void*, xmlErrorPtr) {
}
void IgnoreGenericError(void*, const char*, ...) {
}

// The library keeps its error handlers per thread: every thread that parses silences its
// own before the first parse.
void PrepareThread() {
    static std::once_flag initialised;
    std::call_once(initialised, [] { xmlInitParser(); });
    thread_local bool quiet = false;
    if (!quiet) {
        xmlSetStructuredErrorFunc(nullptr, IgnoreError);
        xmlSetGenericErrorFunc(nullptr, IgnoreGenericError);
        quiet = true;
    }
}

// Looks past a byte-order mark and the zero bytes of UTF-16 text.
bool StartsWithDeclaration(std::span<const std::uint8_t> bytes) {
    std::string head;
    for (std::size_t i = 0; i < bytes.size() && i < 16 && head.size() < 5; ++i) {
        const std::uint8_t byte = bytes[i];
        if (byte != 0 && byte != 0xEF && byte != 0xBB && byte != 0xBF && byte != 0xFE &&
            byte != 0xFF) {
            head += static_cast<char>(byte);
        }
    }
    return head == "<?xml";
}

}  // namespace

XmlDocument::XmlDocument(std::span<const std::uint8_t> bytes) {
    PrepareThread();
    if (bytes.empty() || bytes.size() > kMaxBytes) {
        return;
    }
    declaration_ = StartsWithDeclaration(bytes);
    // No entity substitution and no DTD loading: a sidecar is data, not a fetch list.
    constexpr int kOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    doc_.reset(xmlReadMemory(reinterpret_cast<const char*>(bytes.data()),
                             static_cast<int>(bytes.size()), nullptr, nullptr, kOptions));
    if (!doc_ || xmlDocGetRootElement(doc_.get()) == nullptr) {
        doc_.reset();
        return;
    }
    xpath_.reset(xmlXPathNewContext(doc_.get()));
    if (!xpath_) {
        return;
    }
    const std::pair<const char*, std::string_view> bindings[] = {
        {"x", kMetaNamespace},
        {"rdf", kRdfNamespace},
        {"xmp", kXmpNamespace},
        {"MicrosoftPhoto", kPercentNamespace},
        {"photoshop", kPhotoshopNamespace},
    };
    for (const auto& [prefix, uri] : bindings) {
        if (xmlXPathRegisterNs(xpath_.get(), X(prefix), X(uri)) != 0) {
            xpath_.reset();
            return;
        }
    }
}

std::vector<xmlNodePtr> XmlDocument::Select(const char* expression) const {
    std::vector<xmlNodePtr> nodes;
    if (!Loaded()) {
        return nodes;
    }
    xpath_->node = nullptr;
    std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)> result(
        xmlXPathEvalExpression(X(expression), xpath_.get()), xmlXPathFreeObject);
    if (result && result->type == XPATH_NODESET && result->nodesetval != nullptr) {
        for (int i = 0; i < result->nodesetval->nodeNr; ++i) {
            nodes.push_back(result->nodesetval->nodeTab[i]);
        }
    }
    return nodes;
}

xmlNodePtr XmlDocument::SelectFirst(const char* expression) const {
    const auto nodes = Select(expression);
    return nodes.empty() ? nullptr : nodes.front();
}

std::vector<std::uint8_t> XmlDocument::Serialise() const {
    std::vector<std::uint8_t> bytes;
    if (!doc_) {
        return bytes;
    }
    std::unique_ptr<xmlBuffer, decltype(&xmlBufferFree)> buffer(xmlBufferCreate(), xmlBufferFree);
    if (!buffer) {
        return bytes;
    }
    const int options = declaration_ ? 0 : XML_SAVE_NO_DECL;
    // The file keeps its encoding (a UTF-16 sidecar stays UTF-16).
    const char* encoding =
        doc_->encoding != nullptr ? reinterpret_cast<const char*>(doc_->encoding) : "UTF-8";
    xmlSaveCtxtPtr save = xmlSaveToBuffer(buffer.get(), encoding, options);
    if (save == nullptr) {
        return bytes;
    }
    const long saved = xmlSaveDoc(save, doc_.get());
    if (xmlSaveClose(save) < 0 || saved < 0) {
        return bytes;
    }
    const xmlChar* content = xmlBufferContent(buffer.get());
    bytes.assign(content, content + xmlBufferLength(buffer.get()));
    return bytes;
}

std::string NodeText(xmlNodePtr node) {
    if (node == nullptr) {
        return {};
    }
    struct Free {
        void operator()(xmlChar* text) const { xmlFree(text); }
    };
    std::unique_ptr<xmlChar, Free> text(xmlNodeGetContent(node));
    return text ? std::string(reinterpret_cast<const char*>(text.get())) : std::string();
}

bool InNamespace(xmlNodePtr node, std::string_view uri) {
    return node != nullptr && node->ns != nullptr && node->ns->href != nullptr &&
           uri == reinterpret_cast<const char*>(node->ns->href);
}

bool HasName(xmlNodePtr node, std::string_view localName, std::string_view uri) {
    return InNamespace(node, uri) && node->name != nullptr &&
           localName == reinterpret_cast<const char*>(node->name);
}

}  // namespace orvanta::marks
