#include "protobufFields.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "errors.h"

namespace kzble {

namespace {

using google::protobuf::EnumDescriptor;
using google::protobuf::EnumValueDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using kzclient::Error;
using kzclient::WrongUse;

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return c == '-' || c == ' ' ? '_' : static_cast<char>(std::toupper(c)); });
    return text;
}

template <typename Number>
Number parseNumber(const std::string& field, const std::string& text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        throw WrongUse(field + " takes a number within its bounds, not \"" + text + "\"");
    }
    return number;
}

bool parseSwitch(const std::string& field, const std::string& text) {
    if (text == "on" || text == "true" || text == "1") {
        return true;
    }
    if (text == "off" || text == "false" || text == "0") {
        return false;
    }
    throw WrongUse(field + " takes on or off, not \"" + text + "\"");
}

const EnumValueDescriptor& findEnumerator(const EnumDescriptor& type, const std::string& text) {
    const std::string wanted = upper(text);
    for (int i = 0; i < type.value_count(); ++i) {
        const EnumValueDescriptor& value = *type.value(i);
        if (std::to_string(value.number()) == text || value.name() == wanted || value.name().ends_with("_" + wanted)) {
            return value;
        }
    }
    std::string names;
    for (int i = 0; i < type.value_count(); ++i) {
        names += (i == 0 ? "" : ", ") + type.value(i)->name();
    }
    throw WrongUse("\"" + text + "\" is none of " + names);
}

void setScalar(Message& message, const FieldDescriptor& field, const std::string& text) {
    const auto& reflection = *message.GetReflection();
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_BOOL:
            reflection.SetBool(&message, &field, parseSwitch(field.name(), text));
            return;
        case FieldDescriptor::CPPTYPE_INT32:
            reflection.SetInt32(&message, &field, parseNumber<int32_t>(field.name(), text));
            return;
        case FieldDescriptor::CPPTYPE_UINT32:
            reflection.SetUInt32(&message, &field, parseNumber<uint32_t>(field.name(), text));
            return;
        case FieldDescriptor::CPPTYPE_STRING:
            reflection.SetString(&message, &field, text);
            return;
        case FieldDescriptor::CPPTYPE_ENUM:
            reflection.SetEnum(&message, &field, &findEnumerator(*field.enum_type(), text));
            return;
        default:
            throw WrongUse(field.name() + " cannot be given on the command line");
    }
}

}  // namespace

void setField(Message& message, const std::string& name, const std::string& text) {
    const FieldDescriptor* field = message.GetDescriptor()->FindFieldByName(name);
    if (field == nullptr) {
        throw Error(message.GetTypeName() + " has no field " + name);
    }
    setScalar(message, *field, text);
}

std::string describeField(const FieldDescriptor& field) {
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_BOOL:
            return "on or off";
        case FieldDescriptor::CPPTYPE_STRING:
            return "text";
        case FieldDescriptor::CPPTYPE_ENUM: {
            constexpr int kListed = 8;
            std::string names;
            const EnumDescriptor& type = *field.enum_type();
            for (int i = 0; i < std::min(type.value_count(), kListed); ++i) {
                names += (i == 0 ? "" : ", ") + type.value(i)->name();
            }
            return names + (type.value_count() > kListed ? ", ..." : "");
        }
        default:
            return "number";
    }
}

std::string toJson(const Message& message) {
    google::protobuf::util::JsonPrintOptions options;
    options.preserve_proto_field_names = true;
    std::string json;
    if (!google::protobuf::util::MessageToJsonString(message, &json, options).ok()) {
        throw Error("the camera's answer cannot be shown as JSON");
    }
    return json;
}

std::string toText(const Message& message, TextLines lines) {
    google::protobuf::TextFormat::Printer printer;
    printer.SetSingleLineMode(lines == TextLines::kOne);
    printer.SetUseUtf8StringEscaping(true);
    std::string text;
    printer.PrintToString(message, &text);
    while (text.ends_with('\n') || text.ends_with(' ')) {
        text.pop_back();
    }
    return text.empty() ? "nothing set" : text;
}

}  // namespace kzble
