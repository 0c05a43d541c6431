// Fields of protobuf messages from and to the command line: numbers, on/off, texts, and enumerators by name or number.
#pragma once

#include <google/protobuf/message.h>

#include <string>

namespace kzble {

// Sets the field called `name` from its text. Enumerators may be given by number, by name, or by the end of their name
// in any case ("720" for WSDK_WINDOW_SIZE_720). Throws WrongUse.
void setField(google::protobuf::Message& message, const std::string& name, const std::string& text);
// What a field takes, for its help.
std::string describeField(const google::protobuf::FieldDescriptor& field);

std::string toJson(const google::protobuf::Message& message);
// "field: value", one a line or all on one line.
enum class TextLines { kOneAField, kOne };
std::string toText(const google::protobuf::Message& message, TextLines lines = TextLines::kOneAField);

}  // namespace kzble
