"""Layouts of requests and answers in words."""

TYPES = {
    "u8": "one byte", "number": "number of 1 to 255 bytes, the low 32 bits count", "u16": "two bytes",
    "i16": "two bytes, signed", "u32": "four bytes", "u32le": "four bytes, little-endian", "text": "text", "bytes": "bytes",
}
ENTRIES = {
    "values": "{ id length value } ...", "names": "{ id length name } ...",
    "capabilities": "{ id length option } ...", "capabilities and names": "{ id length option name } ...", "header": "",
}


def hexadecimal(*numbers):
    return " ".join(f"{number:02x}" for number in numbers)


def parameter(param):
    """What a parameter takes, for example "one byte: 0 off, 1 on"."""
    words = [TYPES[param["type"]]]
    if param.get("min") == param.get("max", "") != "":
        words.append(f"{param['min']} long")
    elif "min" in param or "max" in param:
        low = f"{param['min']} to " if "min" in param else "at most "
        of = " long" if param["type"] in ("text", "bytes") else ""
        words.append(f"{low}{param.get('max', '')}{of}")
    if "unit" in param:
        words.append(param["unit"])
    if "none" in param:
        words.append(f"{param['none']}: none")
    if param.get("optional"):
        words.append(f"may be absent, then {param['default']}" if "default" in param else "may be absent")
    if "text" in param:
        words.append(param["text"])
    if "enum" in param:
        words.append(param["enum"])
    text = ", ".join(words)
    if "bits" in param:
        text += "; bits " + ", ".join(f"{bits} {name}" for bits, name in param["bits"].items())
    if "values" in param:
        text += ": " + ", ".join(f"{number} {name}" for number, name in param["values"].items())
    return text


def prefixed(params):
    """Parameters each behind its length, as commands carry them."""
    if params == "any":
        return "(parameters are ignored)"
    return " ".join(f"[length] {p['name'].replace(' ', '-')}" if not p.get("optional")
                    else f"([length] {p['name'].replace(' ', '-')})" for p in params)


def plain(params):
    return " ".join(p["name"].replace(" ", "-") for p in params)


def joined(*words):
    return " ".join(word for word in words if word)
