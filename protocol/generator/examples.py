"""Worked examples of protocol.json as lines to read: what a client writes and what it gets."""

LONG_RUN = 8         # equal bytes from which on they are counted
LONGEST_LINE = 60    # bytes; of a longer message only the beginning is shown
WITHOUT_NOTE = 6     # examples of one row; those with a note are always shown


REPORT = "csi_set 92"  # of who drives the camera; that it fails changes nothing


def expand(text):
    """The bytes of "42*3 01" as numbers."""
    result = []
    for word in text.split():
        byte, _, count = word.partition("*")
        result += [int(byte, 16)] * int(count or 1)
    return result


def readable(text):
    """Hex digits with long runs counted and long messages cut."""
    length = len(expand(text))
    words, shown = [], 0
    for word in text.split():
        byte, _, count = word.partition("*")
        count = int(count or 1)
        words.append(f"{byte}...{byte} ({count} times)" if count >= LONG_RUN else " ".join([byte] * count))
        shown += 1 if count >= LONG_RUN else count
        if shown >= LONGEST_LINE:
            return " ".join(words) + f" ... ({length} bytes)"
    return " ".join(words)


def several(value):
    return value if isinstance(value, list) else [value]


class ExampleWriter:
    def __init__(self, description, interface):
        self.description = description
        self.interface = interface

    def lines(self, row):
        """The examples of a row. Those that differ in what the daemon does inside alone are shown once."""
        result, seen, plain, in_block = [], set(), 0, False
        for example in row.get("examples", []):
            if "note" not in example:
                plain += 1
                if plain > WITHOUT_NOTE:
                    continue
            block = self._example(example)
            if block and tuple(block) not in seen:
                seen.add(tuple(block))
                result += [""] if result and (len(block) > 1 or in_block) else []
                result += block
                in_block = len(block) > 1
        return result

    def _example(self, example):
        steps = example.get("steps", [example])
        lines = self._before(example)
        exchanges = [line for step in steps for line in self._step(step)]
        if not exchanges:
            return []
        note = [example["note"]] if "note" in example else []
        head = "; ".join(note + lines)
        return ([f"# {head}"] if head else []) + exchanges

    def _before(self, example):
        before = example.get("before", {})
        lines = []
        if "as" in example:
            lines.append(f"a client of device type {example['as']}")
        if "radio" in example:
            lines.append(f"the radio takes {example['radio']} packets at a time")
        if "asked" in before:
            lines.append("after " + ", ".join(several(before["asked"])))
        if "csi" in before:
            lines.append(self._csi(before["csi"], "is"))
        if "values" in before:
            lines.append(self._values(before["values"], "is"))
        if any(isinstance(reply, int) for call, reply in before.get("replies", {}).items() if call != REPORT):
            lines.append("the camera refuses")
        return lines

    def _csi(self, keys, verb):
        names = {str(key): row["name"] for key, row in self.description.csi.items()}
        return ", ".join(f"{names.get(key, 'key ' + key)} {verb} {value}" for key, value in keys.items())

    @staticmethod
    def _values(values, verb):
        return ", ".join(f"{'setting' if kind == 'settings' else 'status'} {number} {verb} {value}"
                         for kind, ids in values.items() for number, value in ids.items() if len(str(value)) < 20)

    def _step(self, step):
        """A request with its answer on one line; everything else a line each."""
        asked = [readable(text) or "(empty)" for text in several(step.get("ask", []))]
        written = [f"stream {readable_packet(packet)}" for packet in several(step.get("write", []))]
        gates = [f"descriptor {gate}" for gate in several(step.get("gate", []))]
        answers = [readable(text) for text in several(step.get("answer", []))]
        pushes = [readable(text) for text in several(step.get("push", []))]
        packets = [f"stream {readable_packet(packet)}" for packet in several(step.get("packets", []))]
        events = [self._csi(step.get("csi", {}), "becomes"), self._values(step.get("values", {}), "becomes")]
        events += [f"the camera shows {readable(show[4:])}" for show in several(step.get("show", []))]
        events += ["it comes back"] if "rejoin" in step else []
        on = f"{step['on']}: " if step.get("on", self.interface) != self.interface else ""
        silent = not (asked or written or answers or pushes or packets)
        lines = gates + [f"# {event}{': nothing is sent' if silent else ''}" for event in events if event]
        if len(asked) == 1 and len(answers) <= 1 and not written:
            answer = answers[0] if answers else "(no answer)"
            lines.append(f"{on}{asked[0]}  ->  {answer}")
            answers = []
        else:
            lines += [f"{on}{text}" for text in asked] + written
        lines += [f"    ->  {text}" for text in answers + packets]
        lines += [f"push  {text}" for text in pushes]
        return lines


def readable_packet(packet):
    stream, _, data = packet.partition(": ")
    return f"{stream}: {readable(data)}"
