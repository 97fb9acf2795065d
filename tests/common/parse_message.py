#!/usr/bin/python3
"""Parses one message file with Python's email package and prints JSON:
{"subject", "from", "to", "cc": decoded header texts or null,
 "headers": [[name, raw value], ...], "defects": [text, ...] of the tree,
 "parts": [{"content_type", "filename", "disposition", "charset",
            "payload_base64" (after transfer decoding), "text" (text parts
            decoded by their charset, else null)}, ...] for every leaf}
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
    text = None
    if part.get_content_maintype() == "text":
        try:
            text = part.get_content()
        except Exception:
            pass
    return {"content_type": part.get_content_type(), "filename": part.get_filename(),
            "disposition": part.get_content_disposition(), "charset": part.get_content_charset(),
            "payload_base64": base64.b64encode(part.get_payload(decode=True) or b"").decode("ascii"),
            "text": text}


def main():
    with open(sys.argv[1], "rb") as f:
        message = email.message_from_bytes(f.read(), policy=email.policy.default)
    parts = list(message.walk())
    result = {name: header_text(message, name) for name in ("subject", "from", "to", "cc")}
    result.update(headers=[[name, str(value)] for name, value in message.raw_items()],
                  defects=[str(d) for part in parts for d in part.defects],
                  parts=[leaf(part) for part in parts if not part.is_multipart()])
    json.dump(result, sys.stdout)


if __name__ == "__main__":
    main()
