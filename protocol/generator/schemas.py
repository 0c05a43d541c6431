"""The messages and enumerations of the .proto files, as far as the documents need them. Not a compiler: the schemas are
checked by protoc when the daemon is built."""

import re
from dataclasses import dataclass, field

PLAIN_TYPES = {"bool", "int32", "uint32", "int64", "uint64", "sint32", "sint64", "string", "bytes", "float", "double"}


@dataclass
class Field:
    label: str
    type: str
    name: str
    number: int


@dataclass
class Message:
    name: str
    package: str
    fields: list = field(default_factory=list)

    @property
    def full_name(self):
        return f"{self.package}.{self.name}" if self.package else self.name


@dataclass
class Enum:
    name: str
    values: dict = field(default_factory=dict)  # name by number

    def short_values(self):
        """The values without the words that all their names begin with."""
        names = list(self.values.values())
        words = [name.split("_") for name in names]
        common = 0
        while len(names) > 1 and all(len(w) > common + 1 and w[common] == words[0][common] for w in words):
            common += 1
        return {number: "_".join(name.split("_")[common:]) for number, name in self.values.items()}


class Schemas:
    """Every message and enumeration by its name, which is unique but for the control daemon's own."""

    def __init__(self, folder):
        self.messages, self.enums = {}, {}
        for path in sorted(folder.rglob("*.proto")):
            if path.parent.name != "kzControlCommands":
                self._read(path.read_text())

    def _read(self, text):
        text = re.sub(r"//[^\n]*", "", text)
        package = re.search(r"package\s+([\w.]+)\s*;", text)
        for kind, name, body in re.findall(r"\b(message|enum)\s+(\w+)\s*\{([^}]*)\}", text):
            if kind == "enum":
                self.enums[name] = Enum(name, {int(n): v for v, n in re.findall(r"(\w+)\s*=\s*(-?\d+)", body)})
            else:
                fields = re.findall(r"(optional|required|repeated)\s+([\w.]+)\s+(\w+)\s*=\s*(\d+)", body)
                self.messages[name] = Message(name, package.group(1) if package else "",
                                              [Field(label, type_.rsplit(".", 1)[-1], field_, int(number))
                                               for label, type_, field_, number in fields])

    def reachable(self, names):
        """These messages and enumerations and all that their fields need, in this order."""
        found, waiting = [], list(names)
        while waiting:
            name = waiting.pop(0)
            if name in found or name in PLAIN_TYPES:
                continue
            if name not in self.messages and name not in self.enums:
                raise KeyError(f"no schema has {name}")
            found.append(name)
            if name in self.messages:
                waiting += [f.type for f in self.messages[name].fields]
        return found
