// cJSON trees and the text beside them. cJSON keeps a number as a double and loses the digits of large ones; here is
// the way back from an item of the tree to the characters it was made from.
#pragma once

#include <memory>
#include <string>

struct cJSON;

struct JsonTreeDeleter {
    void operator()(cJSON* root) const;
};
using JsonTree = std::unique_ptr<cJSON, JsonTreeDeleter>;

// The item as formatted JSON, for log lines; empty when memory is short.
std::string PrintJson(const cJSON* item);

// Whether some number of this JSON text may have a fraction or an exponent. False is certain; true may also come from
// characters inside a string.
bool HasFractionOrExponent(const char* json);

// Walks the text of one JSON object in step with its tree, forward only, so that looking up all members in order reads
// the text once. The text must be the one that cJSON accepted; it is neither copied nor owned.
class ObjectText {
  public:
    // `json` is the text of `object`; leading blanks are skipped.
    ObjectText(const char* json, const cJSON* object);

    // The first character of the value of `member`, a member of the object that comes after those asked for so far.
    const char* ValueOf(const cJSON* member);

  private:
    const cJSON* m_member;  // the member that m_text stands before
    const char* m_text;     // behind the object's brace or a comma
};
