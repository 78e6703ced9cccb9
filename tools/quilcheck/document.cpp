#include "quilcheck/document.h"

#include <errno.h>
#include <fcntl.h>
#include <libxml/parser.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/open_file.h"

namespace Quilcheck {

namespace {

// Some thirty times the sample, and small enough that even comparing each output with each other is quick.
constexpr size_t kLargestFile = size_t{128} * 1024;
constexpr long kMostEntityText = 1024L * 1024;
constexpr int kDeepestEntity = 64;
constexpr char kIdles[] = ": a process that needs this file idles";

const char* Plain(const xmlChar* text) {
  return reinterpret_cast<const char*>(text);
}

#if LIBXML_VERSION >= 21200
using ParserError = const xmlError;
#else
using ParserError = xmlError;
#endif

void AddParserError(void* context, ParserError* error) {
  std::string text = error->message != nullptr ? error->message : "not well-formed";
  while (!text.empty() && text.back() == '\n') {
    text.pop_back();
  }
  std::replace(text.begin(), text.end(), '\n', ' ');
  auto* findings = static_cast<Findings*>(context);
  const bool isFatal = error->level == XML_ERR_FATAL;
  findings->AddOfParser(error->line, isFatal, isFatal ? "not well-formed: " + text + kIdles : text);
}

xmlDoc* Parse(const std::string& text, const std::string& path, Findings* findings) {
  xmlParserCtxt* context = xmlNewParserCtxt();
  xmlSetStructuredErrorFunc(findings, AddParserError);
  xmlDoc* document = xmlCtxtReadMemory(context, text.data(), static_cast<int>(text.size()), path.c_str(), nullptr,
                                       XML_PARSE_NONET | XML_PARSE_BIG_LINES);
  xmlSetStructuredErrorFunc(nullptr, nullptr);
  xmlFreeParserCtxt(context);
  return document;
}

/// Subtracts the length of an attribute's text, with all entities expanded, from `*budget`. libxml2 bounds how entities
/// multiply inside each other, but not how often one is repeated.
void SpendText(xmlDoc* document, const xmlNode* node, int depth, long* budget) {
  for (; node != nullptr && *budget > 0; node = node->next) {
    if (node->type == XML_ENTITY_REF_NODE) {
      const xmlEntity* entity = xmlGetDocEntity(document, node->name);
      *budget -= depth < kDeepestEntity ? 1 : kMostEntityText;
      SpendText(document, entity != nullptr ? entity->children : nullptr, depth + 1, budget);
    } else if (node->content != nullptr) {
      *budget -= static_cast<long>(strlen(Plain(node->content)));
    }
  }
}

bool TextIsBounded(xmlDoc* document) {
  long budget = kMostEntityText;
  for (xmlNode* node = xmlDocGetRootElement(document); node != nullptr && budget > 0; node = NextOf(node)) {
    const xmlAttr* attribute = node->type == XML_ELEMENT_NODE ? node->properties : nullptr;
    for (; attribute != nullptr; attribute = attribute->next) {
      SpendText(document, attribute->children, 0, &budget);
    }
  }
  return budget > 0;
}

bool IsText(const xmlNode* node) {
  return (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) && node->content != nullptr;
}

int LineFeeds(const std::string& text) {
  return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

/// The line in which a text begins. The parser notes one in its middle, but those where tags and comments end.
int BeginOfText(const xmlNode* text) {
  int lineFeeds = 0;
  const xmlNode* before = text;
  do {
    const xmlNode* up = before->prev == nullptr ? before->parent : nullptr;
    before = up != nullptr ? up : before->prev;
    while (up == nullptr && before->type == XML_ELEMENT_NODE && before->last != nullptr) {
      before = before->last;
    }
    lineFeeds += IsText(before) ? LineFeeds(Plain(before->content)) : 0;
  } while (IsText(before));
  return lineFeeds + static_cast<int>(xmlGetLineNo(before));
}

}  // namespace

bool ReadPath(const std::string& path, std::string* text, std::string* reason) {
  // A fifo must not hold up the open.
  const OpenFile file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status;
  text->resize(kLargestFile + 1);
  ssize_t count = file.fd >= 0 && fstat(file.fd, &status) == 0 ? 0 : -1;
  if (count == 0 && !S_ISREG(status.st_mode)) {
    *reason = "not a regular file";
    return false;
  }
  size_t length = 0;
  while (count >= 0 && (count = read(file.fd, text->data() + length, text->size() - length)) > 0) {
    length += static_cast<size_t>(count);
  }
  text->resize(length);
  *reason = count < 0 ? strerror(errno) : "larger than 128 KiB: not a configuration";
  return count >= 0 && length <= kLargestFile;
}

bool Document::Load(const std::string& path, Findings* findings, std::string* reason) {
  std::string text;
  if (!ReadPath(path, &text, reason)) {
    return false;
  }
  document = Parse(text, path, findings);
  if (document != nullptr && !TextIsBounded(document)) {
    *reason = "its entities stand for more than 1 MiB of text";
    return false;
  }
  if (document == nullptr && findings->All().empty()) {
    findings->AddOfParser(1, true, std::string("not well-formed") + kIdles);
  }
  return true;
}

xmlNode* NextOf(xmlNode* node) {
  if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
    return node->children;
  }
  while (node != nullptr && node->next == nullptr) {
    node = node->parent;
  }
  return node != nullptr ? node->next : nullptr;
}

bool IsInside(const xmlNode* node, const xmlNode* element) {
  while (node != nullptr && node != element) {
    node = node->parent;
  }
  return node != nullptr;
}

int LineOf(const xmlNode* node) {
  if (!IsText(node)) {
    return static_cast<int>(xmlGetLineNo(node));
  }
  const std::string text = Plain(node->content);
  return BeginOfText(node) + LineFeeds(text.substr(0, text.find_first_not_of(" \t\r\n")));
}

std::string NameOf(const xmlNode* node) {
  return Plain(node->name);
}

bool IsElement(const xmlNode* node, const char* name) {
  return node->type == XML_ELEMENT_NODE && strcmp(Plain(node->name), name) == 0;
}

std::optional<std::string> AttributeOf(const xmlNode* element, const char* name) {
  xmlChar* text = xmlGetProp(element, reinterpret_cast<const xmlChar*>(name));
  if (text == nullptr) {
    return std::nullopt;
  }
  std::string copy = Plain(text);
  xmlFree(text);
  return copy;
}

xmlNode* ChildOf(const xmlNode* element, const char* name) {
  xmlNode* child = element->children;
  while (child != nullptr && !IsElement(child, name)) {
    child = child->next;
  }
  return child;
}

}  // namespace Quilcheck
