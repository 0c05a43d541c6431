"""From a trace with the examples of protocol.json comes a capture in which tshark, with the dissector, names every request
and answer. Exit code 77: no tshark."""

import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "protocol"))
sys.dont_write_bytecode = True

from generator import capture  # noqa: E402
from generator.description import Description  # noqa: E402
from generator.examples import expand  # noqa: E402

SECTIONS = {"commands": "command", "settings": "settings", "queries": "query", "sensor": "sensor", "protobuf": None}
FIELDS = ["kzble.kind", "kzble.name", "kzble.problem", "_ws.lua.text", "_ws.lua.error"]


def prefix(row, bit):
    """First bytes of a row's requests, or with the bit of its answers."""
    if "feature" in row:
        return [row["feature"], row["id"] | bit]
    return [int(row["byte"], 16)] if "byte" in row else [row["id"]] if "id" in row else []


def conversation(description):
    """Packets of all examples as a trace has them, and of each the kind and name that it completes."""
    for section, interface in SECTIONS.items():
        for row in description[section]:
            streams = description.interfaces[interface or description.features()[row["feature"]]]
            for step in (step for example in row["examples"] for step in example.get("steps", [example])):
                for key, stream, kind, bit in (("ask", "request", "request", 0), ("answer", "answer", "answer", 0x80)):
                    message = expand(step[key]) if isinstance(step.get(key), str) else []
                    begin = prefix(row, bit)
                    if message and message[:len(begin)] == begin and not step.get("malformed"):
                        *first, last = capture.cut(message)
                        line = f"{'<-' if bit else '->'} stream {streams[stream]:2}  "
                        yield from ((line + packet.hex(" "), "") for packet in first)
                        yield line + last.hex(" "), f"{kind}\t{row['name']}"


def main():
    if not shutil.which("tshark"):
        print("there is no tshark")
        return 77
    frames = list(conversation(Description(PROJECT)))
    with tempfile.NamedTemporaryFile(suffix=".pcap") as file:
        subprocess.run([PROJECT / "scripts/trace-to-pcap", "-", file.name], text=True, check=True,
                       input="\n".join(line for line, _ in frames))
        shown = subprocess.run(["tshark", "-X", f"lua_script:{PROJECT}/packaging/wireshark/kzble.lua", "-r", file.name,
                                "-T", "fields", *(word for field in FIELDS for word in ("-e", field))],
                               capture_output=True, text=True, check=True)
    lines = shown.stdout.rstrip("\n").split("\n")
    wrong = [f"frame {number}: {line!r} instead of {name!r}"
             for number, (line, (_, name)) in enumerate(zip(lines, frames), 1) if line.strip("\t") != name]
    print(f"{len(frames)} frames", *wrong[:10], sep="\n")
    return 1 if wrong or len(lines) != len(frames) else 0


if __name__ == "__main__":
    sys.exit(main())
