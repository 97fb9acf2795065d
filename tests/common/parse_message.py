#!/usr/bin/python3
"""Parses one message file with Python's email package and prints JSON.

Usage: parse_message.py MESSAGE.eml

Output: {"subject", "from", "to", "cc": decoded header texts or null,
         "headers": [[name, raw value], ...] in message order,
         "defects": [text, ...] of the whole tree,
         "parts": [{"content_type", "filename", "disposition", "charset",
                    "payload_base64", "text"}, ...] for every leaf part}
"payload_base64" is the part's body after its transfer decoding; "text" is
the body decoded to a string for text parts (null otherwise or when the
charset cannot decode it).
"""

import base64
import email
import email.policy
import json
import sys


def header_text(message, name):
    try:
        value = message[name]
    except Exception as error:  # a header the policy cannot parse
        return "<unparsable: %s>" % error
    return None if value is None else str(value)


def leaf(part):
    payload = part.get_payload(decode=True)
    if payload is None:
        payload = b""
    text = None
    if part.get_content_maintype() == "text":
        try:
            text = part.get_content()
        except Exception:
            text = None
    return {
        "content_type": part.get_content_type(),
        "filename": part.get_filename(),
        "disposition": part.get_content_disposition(),
        "charset": part.get_content_charset(),
        "payload_base64": base64.b64encode(payload).decode("ascii"),
        "text": text,
    }


def main():
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    with open(sys.argv[1], "rb") as f:
        raw = f.read()
    message = email.message_from_bytes(raw, policy=email.policy.default)

    defects = []
    parts = []
    for part in message.walk():
        defects.extend(str(d) for d in part.defects)
        if not part.is_multipart():
            parts.append(leaf(part))

    result = {
        "subject": header_text(message, "subject"),
        "from": header_text(message, "from"),
        "to": header_text(message, "to"),
        "cc": header_text(message, "cc"),
        "headers": [[name, str(value)] for name, value in message.raw_items()],
        "defects": defects,
        "parts": parts,
    }
    json.dump(result, sys.stdout)
    sys.stdout.write("\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
