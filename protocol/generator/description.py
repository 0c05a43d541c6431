"""protocol.json with what belongs to it: the catalogue of the simulated camera, which gives names to settings and status
fields, and the schemas of the protobuf messages."""

import json

from .schemas import Schemas


class Description:
    def __init__(self, project):
        self.json = json.loads((project / "protocol/protocol.json").read_text())
        self.catalogue = json.loads((project / "simulator/data/58/settings.json").read_text())
        self.schemas = Schemas(project / "libkzProtoCpp/src")
        self.interfaces = {row["name"]: row for row in self.json["interfaces"]}
        self.streams = {row["id"]: row for row in self.json["streams"]}
        self.csi = {row["key"]: row for row in self.json["csi"]}

    def __getitem__(self, section):
        return self.json[section]

    def features(self):
        """The interface of each protobuf feature."""
        return {row["id"]: row["on"] for row in self["features"]}

    def width(self, kind, number):
        """Bytes of the value of a setting or status field, or "text"."""
        table = self["widths"][kind]
        for width, ids in table["except"].items():
            if number in ids:
                return width if width == "text" else int(width)
        return table["width"]

    def settings(self):
        """Settings of the catalogue by id: name and names of the options by id."""
        return {row["id"]: (row["display_name"], {o["id"]: o["display_name"] for o in row["options"]})
                for row in sorted(self.catalogue["settings"], key=lambda row: row["id"])}

    def statuses(self):
        """Names of the catalogue's status fields by id."""
        fields = [field for group in self.catalogue["status"]["groups"] for field in group["fields"]]
        return {field["id"]: field["name"] for field in sorted(fields, key=lambda field: field["id"])}

    def protobuf_types(self):
        """Every schema that occurs on the wire, with what its fields need."""
        names = [row[key] for row in self["protobuf"] for key in ("request", "answer") if key in row]
        names += [row["form"] for row in self["pushes"] if row["form"] in self.schemas.messages]
        names += [param["enum"] for row in self["commands"] if row["params"] != "any"
                  for param in row["params"] if "enum" in param]
        return self.schemas.reachable(names)
