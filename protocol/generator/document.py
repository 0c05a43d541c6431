"""docs/protocol.md: the chapters of protocol/chapters/protocol.md, whose "@block arguments@" become tables and examples."""

import re
import textwrap

from .examples import ExampleWriter
from .layout import parameter
from .schemas import PLAIN_TYPES

WIDTH = 128  # of a line of prose


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(str(cell).replace("|", "\\|") for cell in row) + " |" for row in rows])


def block(lines):
    """Lines of code."""
    return "\n".join("    " + line if line else "" for line in lines)


def sentence(text):
    return text[:1].upper() + text[1:] + ("" if text.endswith(".") else ".")


def prose(text):
    return textwrap.fill(text, WIDTH, break_long_words=False, break_on_hyphens=False)


class Document:
    def __init__(self, description, entries):
        self.description = description
        self.entries_made = entries

    def text(self, template):
        def replace(match):
            name, _, argument = match.group(1).partition(" ")
            return getattr(self, name)(*([argument] if argument else []))
        text = re.sub(r"@(\w+(?: [\w -]+)?)@", replace, template)
        return re.sub(r"\n{3,}", "\n\n", text)

    # ------------------------------------------------------------ tables of one section

    def interfaces(self):
        rows = self.description["interfaces"]
        return table(["Interface", "requests", "answers", "gate", ""],
                     [[r["name"], r["request"], r["answer"], r["gate"], r["text"]] for r in rows])

    def streams(self):
        return table(["Stream", "Name", "Kind", "Content", ""],
                     [[r["id"], r["name"], r["role"], r.get("form", ""),
                       r.get("text") or "opens " + ", ".join(map(str, r["opens"]))] for r in self.description["streams"]])

    def packets(self):
        return table(["First bytes", "Form", "Message bytes in this packet", "Longest message", "Sent by"],
                     [[f"`{r['bits']}`", r["name"], r["room"], r.get("used", ""),
                       "camera" if r["from"] == "camera" else "both"] for r in self.description["packets"]])

    def _codes(self, section):
        return table(["Code", "Meaning", ""], [[r["code"], r["name"], r.get("text", "")] for r in self.description[section]])

    def results(self):
        return self._codes("results")

    def protobufResults(self):
        return self._codes("protobufResults")

    def sensorResults(self):
        return self._codes("sensorResults")

    def deviceTypes(self):
        return table(["Type", "Name", ""], [[r["id"], r["name"], r.get("text", "")] for r in self.description["deviceTypes"]])

    def bitrates(self):
        row = next(r for r in self.description["protobuf"] if "bitrates" in r)
        windows = self.description.schemas.enums["WSDK_EnumWindowSize"].short_values()
        return table(["Window", "minimum", "starting", "maximum"],
                     [[windows[b["window"]], b["minimum"], b["starting"], b["maximum"]] for b in row["bitrates"]])

    # ------------------------------------------------------------ rules

    def _rule(self, name):
        return next(row for row in self.description["rules"] if row["name"] == name)

    def ruletext(self, name):
        return prose(sentence(self._rule(name)["text"]))

    def ruleexamples(self, name):
        rule = self._rule(name)
        return block(ExampleWriter(self.description, rule.get("on", "command")).lines(rule))

    def rule(self, name):
        text = prose(f"**{sentence(name)}** {sentence(self._rule(name)['text'])}")
        return f"{text}\n\n{self.ruleexamples(name)}\n"

    # ------------------------------------------------------------ entries

    def _of_kind(self, selection):
        """The entries of a kind, of protobuf those of one interface."""
        kind, _, interface = selection.partition(" ")
        return [e for e in self.entries_made if e.kind == kind and (
            not interface or self.description.interfaces[interface]["request"] == e.request_stream)]

    def overview(self, selection):
        return table(["Bytes", "Name", ""], [[f"`{e.code}`", e.name, e.does] for e in self._of_kind(selection)])

    def entries(self, selection):
        return "\n".join(self._entry(e) for e in self._of_kind(selection))

    def _entry(self, e):
        text = " ".join(sentence(words) for words in [e.does, *e.notes])
        parts = [f"### {(e.code + ' ' + e.name).strip()}\n", prose(text)]
        layout = [f"request  {e.request}"] if e.request else []
        layout.append(f"{'answer ' if e.request else 'comes as'}  {e.answer}")
        parts += ["", block(layout)]
        for title, params in (("Parameter", e.params), ("Answer", e.answer_params)):
            if params:
                parts += ["", table([title, "Type"], params)]
        if e.messages:
            parts += ["", "Messages: " + ", ".join(f"[`{name}`](#{name.lower()})" for name in e.messages) + "."]
        if e.examples:
            parts += ["", "Examples:", "", block(e.examples)]
        return "\n".join(parts) + "\n"

    # ------------------------------------------------------------ pushes and values

    def keys(self):
        schemas, rows = self.description.schemas, []
        for row in self.description["csi"]:
            if "action" in row:
                push = next(p for p in self.description["pushes"] if p.get("action") == row["action"])
                fields = {f.number: f.name for f in schemas.messages[push["form"]].fields}
                values = ", ".join(f"{number} {name}" for number, name in row.get("values", {}).items())
                carried = ", ".join(f"{number} `{fields[number]}`" for number in row["fields"])
                rows.append([row["key"], f"`{row['name']}`", push["name"], carried,
                             "; ".join(text for text in (values, row.get("text", "")) if text)])
        return table(["Key", "Name", "Push", "Fields", "Values"], rows)

    def widths(self):
        rows = []
        for kind, words in (("settings", "settings"), ("status", "status fields")):
            w = self.description["widths"][kind]
            rows.append([f"{words} {w['first']} to {w['last']}", f"{w['width']} byte", "all others"])
            for width, ids in w["except"].items():
                rows.append([words, width if width == "text" else f"{width} bytes", ", ".join(map(str, ids))])
        return table(["Of", "Width", "Ids"], rows)

    def _width(self, kind, number):
        return self.description.width(kind, number)

    def settings(self):
        return table(["Id", "Setting", "Bytes", "Options"],
                     [[number, name, self._width("settings", number), ", ".join(f"{o} {text}" for o, text in options.items())]
                      for number, (name, options) in self.description.settings().items()])

    def statuses(self):
        return table(["Id", "Status field", "Bytes"],
                     [[number, name, self._width("status", number)] for number, name in self.description.statuses().items()])

    # ------------------------------------------------------------ accessories

    def updatecheck(self):
        """Whether an update follows can be told from the calls: an accessory is reported as connected only without."""
        row = self.description["accessories"][0]
        rows = []
        for example in row["examples"]:
            files = [path.rsplit("/", 1)[0] for path in example["before"].get("files", {})]
            updated = "csi_set 11" not in example["calls"]
            rows.append([example["note"], ", ".join(files), "update" if updated else "no update"])
        return sentence(row["text"]) + "\n\n" + table(["Case", "Image in", "What follows"], rows)

    def updates(self):
        parts = []
        for row in self.description["accessories"]:
            if "reboot" in row:
                facts = [["accessory in `client-info`", row["accessory"]], ["device type", row["deviceType"]],
                         ["image file begins with", f"`{row['image']}`"],
                         ["asked to reboot with, `stream: bytes`", f"`{row['reboot']}`"]]
                facts += [["asks with", f"`{row['request']}`"]] if "request" in row else []
                facts += [[f"asks with `27: {r['bytes']}`", r["text"]] for r in row.get("requests", [])]
                facts += [["is replied", f"`{row['reply']}`"]] if "reply" in row else []
                facts += [["image on stream", row["data"]], ["end", f"`{row['end']}`"]]
                lines = ExampleWriter(self.description, "sensor").lines({"examples": row["examples"]})
                parts += [f"#### {row['name']}\n", prose(sentence(row["does"]) + " " + sentence(row["text"])), "",
                          table(["", ""], facts), "", block(lines), ""]
        return "\n".join(parts)

    def image(self):
        image = self.description["image"]
        rows = [[f["offset"], parameter({k: v for k, v in f.items() if k != "text"}), f["name"], f.get("text", "")]
                for f in image["fields"]]
        folders = " and ".join(f"`{folder}`" for folder in image["directories"])
        text = (f"Looked for in {folders}, in this order; the name begins with the accessory's own prefix and contains "
                f"`{image['suffix']}`. {sentence(image['text'])} The image has at most {image['longest']} bytes; the "
                f"checksum is the CRC-32 of {image['crc']}.")
        return prose(text) + "\n\n" + table(["Offset", "Type", "Field", ""], rows)

    # ------------------------------------------------------------ schemas

    def messages(self):
        schemas = self.description.schemas
        parts = []
        for name in sorted(n for n in self.description.protobuf_types() if n in schemas.messages):
            fields = [[f.number, f"`{f.name}`", self._type(f.type), f.label] for f in schemas.messages[name].fields]
            parts += [f"### {name}\n", table(["Field", "Name", "Type", ""], fields) if fields else "No fields.", ""]
        return "\n".join(parts)

    @staticmethod
    def _type(name):
        return name if name in PLAIN_TYPES else f"[`{name}`](#{name.lower()})"

    def enums(self):
        schemas = self.description.schemas
        parts = []
        for name in sorted(n for n in self.description.protobuf_types() if n in schemas.enums):
            values = schemas.enums[name]
            first = next(iter(values.values.values()))
            prefix = first[:len(first) - len(values.short_values()[next(iter(values.values))])]
            list_of_values = ", ".join(f"{number} {short}" for number, short in values.short_values().items())
            parts += [f"### {name}\n", prose((f"`{prefix}`...: " if prefix else "") + list_of_values + "."), ""]
        return "\n".join(parts)
