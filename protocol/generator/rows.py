"""The C++ rows of `kzble list`, `kzble describe` and of traces: protocolTable.h has their types."""

import json

from .layout import hexadecimal
from .schemas import PLAIN_TYPES

MANY_VALUES = 16  # of an enumeration; larger ones stand in the document alone


def quoted(text):
    """A C++ string literal."""
    return json.dumps(text).replace("??", "?\\?")


def indented(lines):
    return ["    " + line if line else "" for line in lines]


class Rows:
    def __init__(self, description, entries):
        self.description = description
        self.entries = entries

    def text(self):
        rows = [self._row(entry) for entry in self.entries]
        results = [(f"{section}", row["code"], row["name"]) for section in ("results", "sensorResults")
                   for row in self.description[section] if isinstance(row["code"], int)]
        streams = [f"    {{{row['id']}, {quoted(row['name'])}}}," for row in self.description["streams"]]
        lines = ["// Made by scripts/generate-protocol from protocol/protocol.json.", '#include "protocolTable.h"', "",
                 "namespace kzprotocol::generated {", "", "const Row kRows[] = {", *rows, "};",
                 f"const size_t kRowCount = {len(rows)};", "", "const Name kStreams[] = {", *streams, "};",
                 f"const size_t kStreamCount = {len(streams)};", ""]
        for section, array in (("results", "kResults"), ("sensorResults", "kSensorResults")):
            names = [(code, name) for of, code, name in results if of == section]
            lines += [f"const Name {array}[] = {{", *(f"    {{{code}, {quoted(name)}}}," for code, name in names), "};",
                      f"const size_t {array[:-1]}Count = {len(names)};", ""]
        for kind, array in (("settings", "kSettingWidths"), ("status", "kStatusWidths")):
            last = self.description["widths"][kind]["last"]
            widths = [self.description.width(kind, number) for number in range(last + 1)]
            lines += [f"const signed char {array}[] = {{" + ", ".join("-1" if w == "text" else str(w) for w in widths) + "};",
                      f"const size_t {array[:-1]}Count = {len(widths)};", ""]
        return "\n".join(lines + ["}  // namespace kzprotocol::generated", ""])

    def _row(self, e):
        return ("    {" + ", ".join([quoted(e.kind), quoted(e.name), quoted(e.does), str(e.first), str(e.second),
                                     str(e.request_stream), str(e.answer_stream), quoted(self._details(e)),
                                     quoted(self._json(e))]) + "},")

    def _details(self, e):
        """What `describe` prints."""
        streams = [f"stream {e.request_stream}, answered on stream {e.answer_stream}"] if e.request_stream else []
        streams += [f"comes on stream {e.answer_stream}"] if e.answer_stream and not e.request_stream else []
        lines = [f"{e.name}: {e.does}", *streams]
        layout = [f"{word}  {text}" for word, text in (("request", e.request), ("answer ", e.answer)) if text]
        for block in (layout, self._parameters(e.params), self._parameters(e.answer_params, "in the answer "), e.notes):
            lines += ["", *block] if block else []
        for name in e.messages:
            lines += ["", f"{name}:", *indented(self._fields(name))]
        if e.examples:
            lines += ["", "examples:", *indented(e.examples)]
        return "\n".join(lines)

    @staticmethod
    def _parameters(params, where=""):
        width = max((len(name) for name, _ in params), default=0)
        return [f"{where}{name:{width}}  {words}" for name, words in params]

    def _fields(self, name):
        lines = []
        for field in self.description.schemas.messages[name].fields:
            label = "repeated " if field.label == "repeated" else ""
            lines.append(f"{field.number} {field.name}: {label}{field.type}{self._values(field.type)}")
        return lines or ["(no fields)"]

    def _values(self, name):
        enum = self.description.schemas.enums.get(name)
        if name in PLAIN_TYPES or enum is None or len(enum.values) > MANY_VALUES:
            return ""
        return " (" + ", ".join(f"{number} {short}" for number, short in enum.short_values().items()) + ")"

    def _json(self, e):
        """What `describe --json` prints, on one line."""
        row = {"kind": e.kind, "name": e.name, "does": e.does}
        if e.first >= 0:
            row["bytes"] = hexadecimal(e.first) if e.second < 0 else hexadecimal(e.first, e.second)
        for key in ("request_stream", "answer_stream", "request", "answer", "notes", "messages", "examples"):
            if getattr(e, key):
                row[key] = [line for line in getattr(e, key) if line] if key == "examples" else getattr(e, key)
        for key in ("params", "answer_params"):
            if getattr(e, key):
                row[key] = [{"name": name, "type": words} for name, words in getattr(e, key)]
        return json.dumps(row, ensure_ascii=False, separators=(",", ":"))
