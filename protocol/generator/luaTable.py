"""packaging/wireshark/kzbleTable.lua: what the dissector knows of the protocol."""


def literal(value):
    if isinstance(value, dict):
        return "{" + ", ".join(f"{key(k)} = {literal(v)}" for k, v in value.items()) + "}"
    if isinstance(value, (list, tuple)):
        return "{" + ", ".join(literal(v) for v in value) + "}"
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, int):
        return str(value)
    return '"' + value.replace("\\", "\\\\").replace('"', '\\"') + '"'


def key(value):
    return f"[{value}]" if isinstance(value, int) else value


def table(name, rows):
    return [f"t.{name} = {{"] + [f"  [{number}] = {literal(row)}," for number, row in rows.items()] + ["}", ""]


class LuaTable:
    def __init__(self, description, entries):
        self.description = description
        self.entries = entries

    def text(self):
        d = self.description
        lines = ["-- Made by scripts/generate-protocol from protocol/protocol.json. Do not edit.", "local t = {}", ""]
        lines += table("streams", {row["id"]: {"name": row["name"], "form": row.get("form", row["role"])}
                                   for row in d["streams"]})
        lines += table("interfaces", {row["request"]: {"name": row["name"], "answer": row["answer"]}
                                      for row in d["interfaces"]})
        lines += ["-- By stream of the request, first byte, and second byte (-1: it does not select).", "t.requests = {}"]
        for stream in sorted(row["request"] for row in d["interfaces"]):
            lines += table(f"requests[{stream}]", self._rows([e for e in self.entries if e.request_stream == stream]))
        lines += ["-- Without a request, by stream.", "t.pushes = {}"]
        sent = [e for e in self.entries if e.first >= 0 and not e.request_stream]
        for stream in sorted({e.answer_stream for e in sent}):
            found = [e for e in sent if e.answer_stream == stream]
            lines += table(f"pushes[{stream}]", self._rows(found))
        for section in ("results", "sensorResults", "protobufResults"):
            lines += table(section, {row["code"]: row["name"] for row in d[section] if isinstance(row["code"], int)})
        lines += table("settings", {number: {"name": name, "options": options}
                                    for number, (name, options) in d.settings().items()})
        lines += table("statuses", d.statuses())
        lines += table("textStatuses", {number: True for number in d["widths"]["status"]["except"]["text"]})
        return "\n".join(lines + ["return t", ""])

    def _rows(self, entries):
        rows = {}
        for e in entries:
            rows.setdefault(e.first, {})[e.second] = self._row(e)
        return rows

    def _row(self, e):
        row = {"name": e.name}
        for side, message in zip(("request", "answer"), self._messages(e)):
            if message:
                row[side] = self.description.schemas.messages[message].full_name
        parameters, answers = self._parameters(e)
        if parameters:
            row["parameters"] = parameters
        if answers:
            row["answers"] = answers
        if e.kind in ("query", "push") and e.second < 0:
            row["ids"], row["entries"] = self._query(e)
        return row

    def _messages(self, e):
        for row in self.description["protobuf"]:
            if (row["feature"], row["id"]) == (e.first, e.second) and e.kind == "protobuf":
                return row.get("request"), row["answer"]
        return (None, e.messages[0]) if e.messages else (None, None)

    def _parameters(self, e):
        section = {"command": "commands", "sensor": "sensor"}.get(e.kind)
        for row in self.description[section] if section else []:
            if row["id"] == e.first:
                found = [row.get(key) if isinstance(row.get(key), list) else [] for key in ("params", "answer")]
                return [[self._parameter(param) for param in params] for params in found]
        return [], []

    @staticmethod
    def _parameter(param):
        """Without a width it takes what is left; so does everything behind a length byte."""
        widths = {"u8": 1, "u16": 2, "i16": 2, "u32": 4}
        width = widths.get(param["type"], param["max"] if param.get("min") == param.get("max", "") else 0)
        values = {int(number): name for number, name in param.get("values", {}).items()}
        return {"name": param["name"], "width": width} | ({"values": values} if values else {}) | (
            {"text": True} if param["type"] == "text" else {})

    def _query(self, e):
        for row in self.description["queries"]:
            if row["byte"] == e.code and e.kind == "query":
                return row["ids"], row["answer"]
        row = next(row for row in self.description["pushes"] if row["byte"] == e.code)
        return ("status" if row["registered"] == ["53"] else "settings"), row["form"]
