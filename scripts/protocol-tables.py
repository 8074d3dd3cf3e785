#!/usr/bin/python3
"""Writes the README's protocol tables (methods, notifications, error codes)
from docs/protocol/openrpc.json, the one description of the protocol.

  scripts/protocol-tables.py --write README.md   regenerate the tables in place
  scripts/protocol-tables.py --check README.md   exit 1 when they differ (a test)
The tables sit between the BEGIN and END marker lines in README.md."""

import json
import os
import sys

BEGIN = "<!-- BEGIN protocol tables: generated from docs/protocol/openrpc.json by scripts/protocol-tables.py -->"
END = "<!-- END protocol tables -->"


def cell(text):
    return text.replace("|", "\\|")


def tables(doc):
    methods = [m for m in doc["methods"] if not m.get("x-notification")]
    notifications = [m for m in doc["methods"] if m.get("x-notification")]
    out = ["### Methods", "",
           "Every method the service registers; `docs/protocol/openrpc.json` gives each one's params and",
           "result as JSON Schema.", "",
           "| method | params | result | what it does |", "|---|---|---|---|"]
    for m in methods:
        params = ", ".join("`%s` (%s)" % (p["name"], p["summary"]) for p in m["params"])
        result = m["result"]["summary"] if "result" in m else "no reply at all"
        out.append("| `%s` | %s | %s | %s |" % (m["name"], cell(params), cell(result), cell(m["summary"])))
    out += ["", "### Notifications", "",
            "Pushed to every connected client as JSON-RPC notifications (no \"id\"); the description marks",
            "them with `\"x-notification\": true`.", "",
            "| method | params | sent when |", "|---|---|---|"]
    for m in notifications:
        params = ", ".join("`%s` (%s)" % (p["name"], p["summary"]) for p in m["params"])
        out.append("| `%s` | %s | %s |" % (m["name"], cell(params), cell(m["summary"])))
    out += ["", "### Error codes", "", "| code | message |", "|---|---|"]
    # OpenRPC allows no extension inside an error object: the notes sit at
    # the document's root, keyed by the error's name.
    notes = doc.get("x-error-notes", {})
    for name, error in doc["components"]["errors"].items():
        message = " / ".join('"%s"' % part for part in error["message"].split(" / "))
        if name in notes:
            message += ": " + notes[name]
        out.append("| %d | %s |" % (error["code"], cell(message)))
    return "\n".join(out) + "\n"


def main(argv):
    if len(argv) != 3 or argv[1] not in ("--write", "--check"):
        print(__doc__)
        return 2
    root = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
    with open(os.path.join(root, "docs", "protocol", "openrpc.json"), encoding="utf-8") as f:
        doc = json.load(f)
    with open(argv[2], encoding="utf-8") as f:
        readme = f.read()
    start = readme.find(BEGIN + "\n")
    end = readme.find(END, start)
    if start < 0 or end < 0:
        print("%s: no %s ... %s section" % (argv[2], BEGIN, END))
        return 1
    start += len(BEGIN) + 1
    wanted = tables(doc)
    if argv[1] == "--write":
        with open(argv[2], "w", encoding="utf-8") as f:
            f.write(readme[:start] + wanted + readme[end:])
        return 0
    if readme[start:end] != wanted:
        print("README.md's protocol tables differ from docs/protocol/openrpc.json;")
        print("regenerate them: scripts/protocol-tables.py --write README.md")
        return 1
    print("README protocol tables match docs/protocol/openrpc.json")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
