// Help with cJSON trees, and the way back from an item of a tree to the text it was made from.
//
// cJSON keeps a number as a double, which does not hold every 64-bit integer, so the exact digits must come from the
// text. A second parse would find them too, but the benchmark "model" measures a push against one bare parse of its
// text: so text is read again only where a number may not be held exactly, and then forward and once.
#pragma once

#include <memory>
#include <string>

struct cJSON;

struct JsonTreeDeleter {
    void operator()(cJSON* root) const;
};
using JsonTree = std::unique_ptr<cJSON, JsonTreeDeleter>;

// The item as formatted JSON, for log lines. A long item is cut: one that is nested a thousand deep has half a million
// tabs.
std::string PrintJson(const cJSON* item);

// Whether some number of this JSON text may have a fraction or an exponent. False is certain. True may be wrong, for
// characters inside a string are not told from those of numbers.
bool HasFractionOrExponent(const char* json);

// Finds the text of the members of one JSON object. It walks text and tree side by side and only forward, so that
// asking for all members in order reads the text once. The text must be the one that cJSON accepted. It is not copied
// and must outlive the walk.
class ObjectText {
  public:
    // `json` is the text of `object`; leading blanks are skipped.
    ObjectText(const char* json, const cJSON* object);

    // The first character of the value of `member`, which must be a member of the object and must not come before one
    // that was asked for already.
    const char* ValueOf(const cJSON* member);

  private:
    const cJSON* m_member;  // the next member; its text begins at m_text
    const char* m_text;     // behind the object's opening brace or a comma
};
