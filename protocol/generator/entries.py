"""Everything that has a name in the protocol, in one form: documents and tables are made from these."""

from dataclasses import dataclass, field

from .examples import ExampleWriter
from .layout import ENTRIES, hexadecimal, joined, parameter, plain, prefixed

REFUSALS = {
    "code": "a refusal has the camera's own code as its result", "failure": "a refusal has result 1",
    "unknown": "a refusal is answered with RESULT_UNKNOWN", "hidden": "a refusal by the camera is answered like a success",
}


@dataclass
class Entry:
    kind: str
    name: str
    does: str
    first: int = -1           # first byte of the request, or of the push
    second: int = -1          # second byte, where it selects too
    request_stream: int = 0   # 0: there is none
    answer_stream: int = 0
    request: str = ""         # layout
    answer: str = ""
    params: list = field(default_factory=list)          # (name, words)
    answer_params: list = field(default_factory=list)
    messages: list = field(default_factory=list)        # protobuf messages of request and answer
    notes: list = field(default_factory=list)
    examples: list = field(default_factory=list)

    @property
    def code(self):
        if self.first < 0:
            return ""
        return hexadecimal(self.first) if self.second < 0 else hexadecimal(self.first, self.second)


class EntryMaker:
    def __init__(self, description):
        self.description = description

    def all(self):
        result = []
        for section, make in (("commands", self.command), ("settings", self.setting), ("queries", self.query),
                              ("protobuf", self.protobuf), ("pushes", self.push), ("sensor", self.sensor),
                              ("buffers", self.buffer), ("accessories", self.update), ("csi", self.key)):
            result += [make(row) for row in self.description[section]]
        return result

    def _entry(self, kind, row, interface, **more):
        notes = [row["text"]] if "text" in row else []
        if "refused" in row:
            notes.append(REFUSALS[row["refused"]])
        if row.get("asleep") == "refused":
            notes.append("refused with result 1 while the camera sleeps or wakes up")
        streams = self.description.interfaces[interface]
        entry = Entry(kind, row["name"], row.get("does", ""), request_stream=streams["request"],
                      answer_stream=streams["answer"], notes=notes,
                      examples=ExampleWriter(self.description, interface).lines(row))
        for key, value in more.items():
            setattr(entry, key, value)
        return entry

    def command(self, row):
        code = hexadecimal(row["id"])
        answer = row.get("answer", [])
        if answer == "transfer":
            layout, answer = f"{code} 00 file, as one message; {code} result when it is refused", []
        else:
            layout = joined(code, "result", prefixed(answer))
        entry = self._entry("command", row, "command", first=row["id"], request=joined(code, prefixed(row["params"])),
                            answer=layout, answer_params=words(answer),
                            params=[] if row["params"] == "any" else words(row["params"]))
        if "wrongCount" in row:
            entry.notes.append("another number of parameters is refused with result 2")
        return entry

    def setting(self, row):
        code = hexadecimal(row["id"]) if "id" in row else "setting"
        return self._entry("setting", row, "settings", first=row.get("id", -1), request=f"{code} [length] option",
                           answer=f"{code} result", params=words(row["params"]))

    def query(self, row):
        entry = self._entry("query", row, "query", first=int(row["byte"], 16), request=f"{row['byte']} {{ id }} ...",
                            answer=joined(row["byte"], "result", ENTRIES[row["answer"]]))
        if "push" in row:
            entry.notes.append(f"changes are pushed as {row['push']} from then on")
        return entry

    def protobuf(self, row):
        interface = self.description.features()[row["feature"]]
        request, answer = row.get("request", ""), row["answer"]
        entry = self._entry("protobuf", row, interface, first=row["feature"], second=row["id"],
                            request=joined(hexadecimal(row["feature"], row["id"]), request),
                            answer=joined(hexadecimal(row["feature"], row["id"] | 0x80), answer),
                            messages=[name for name in (request, answer) if name])
        if "registers" in row:
            keys = ", ".join(f"{number} {self.key_name(key)}" for number, key in row["registers"].items())
            entry.notes.append(f"its lists 1 (register) and 2 (unregister) take {keys}")
        return entry

    def key_name(self, key):
        return self.description.csi[key]["name"] if key in self.description.csi else f"key {key}"

    def push(self, row):
        action = int(row["action"], 16) if "action" in row else -1
        layout = joined("result", ENTRIES[row["form"]]) if row["form"] in ENTRIES else row["form"]
        entry = self._entry("push", row, "query", first=int(row["byte"], 16), second=action, request_stream=0,
                            answer=joined(row["byte"], row.get("action", ""), layout),
                            messages=[row["form"]] if row["form"] not in ENTRIES else [])
        entry.notes.append(f"to clients that registered with {' or '.join(row['registered'])}")
        if action >= 0:
            causes = [key for key in self.description["csi"] if key.get("action") == row["action"]]
            entry.notes.append("sent when one of these changes: " + ", ".join(key["name"] for key in causes))
            first = {"examples": [key["examples"][0] for key in causes]}
            entry.examples = ExampleWriter(self.description, "query").lines(first)
        return entry

    def sensor(self, row):
        code = hexadecimal(row["id"])
        return self._entry("sensor", row, "sensor", first=row["id"], request=joined(code, plain(row["params"])),
                           answer=f"{code} code", params=words(row["params"]))

    def buffer(self, row):
        entry = self._entry("buffer", row, "sensor", first=int(row["byte"], 16), request_stream=0,
                            answer=f"{row['byte']} data")
        entry.notes.append(f"to an accessory that registered with {row['registered']}")
        if "longest" in row:
            entry.notes.append(f"at most {row['longest']} bytes of data")
        return entry

    def update(self, row):
        return self._entry("update", row, "sensor", request_stream=0, answer_stream=0)

    def key(self, row):
        entry = self._entry("key", row, "query", request_stream=0, answer_stream=0)
        entry.does = f"key {row['key']} of the camera's status service"
        if "values" in row:
            entry.notes.insert(0, "values: " + ", ".join(f"{number} {name}" for number, name in row["values"].items()))
        if "action" in row:
            push = next(p for p in self.description["pushes"] if p.get("action") == row["action"])
            fields = {f.number: f.name for f in self.description.schemas.messages[push["form"]].fields}
            entry.does += f": a change is pushed as {push['name']}"
            entry.notes.append("fields that it may carry: " + ", ".join(fields[n] for n in row["fields"]))
        return entry


def words(params):
    """Names and types of parameters; of a record those of its fields."""
    result = []
    for param in params:
        if param["type"] == "record":
            result += [(f"{param['name']}: {inner['name']}", parameter(inner)) for inner in param["fields"]]
        else:
            result.append((param["name"], parameter(param)))
    return result
