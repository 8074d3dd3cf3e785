#!/usr/bin/python3
"""Validates the messages the integration tests received from the daemon
against docs/protocol/openrpc.json.

The test client (tests/support/RpcClient) appends every message it reads to
DIR/wire-PID.jsonl when USBMEDIA_WIRE_LOG_DIR is set, one JSON object a line:
  {"method": "ping" or null, "text": "<the message as received>"}
"method" names the request a reply answers, when the client knows it.

Usage: check_wire_log.py OPENRPC DIR     validate every log in DIR
       check_wire_log.py OPENRPC --self-test
Runs with Debian's /usr/bin/python3 and python3-jsonschema."""

import glob
import json
import os
import sys

import jsonschema


class Protocol:
    def __init__(self, path):
        with open(path, encoding="utf-8") as f:
            self.doc = json.load(f)
        self.resolver = jsonschema.RefResolver.from_schema(self.doc)
        self.methods = {}
        self.notifications = {}
        for entry in self.doc["methods"]:
            target = self.notifications if entry.get("x-notification") else self.methods
            target[entry["name"]] = entry
        error = {"$ref": "#/components/schemas/Error"}
        envelope = {"jsonrpc": {"const": "2.0"}, "id": {"type": ["integer", "string", "null"]}}
        # The JSON-RPC layer's own errors: "error" alone.
        self.error_reply = self._validator({
            "type": "object", "required": ["jsonrpc", "id", "error"], "additionalProperties": False,
            "properties": dict(envelope, error={"allOf": [error, {"properties": {
                "code": {"type": "integer", "maximum": -32000, "minimum": -32768}}}]})})
        self.replies = {}
        for name, entry in self.methods.items():
            if entry.get("x-no-reply"):
                continue
            properties = dict(envelope, error=error)
            required = ["jsonrpc", "id"]
            if entry.get("x-result-absent"):
                properties["result"] = False
            else:
                properties["result"] = entry["result"]["schema"]
                required.append("result")
            self.replies[name] = self._validator({"type": "object", "required": required,
                                                  "properties": properties, "additionalProperties": False})
        self.notification_validators = {
            name: self._validator({
                "type": "object", "required": ["jsonrpc", "method", "params"], "additionalProperties": False,
                "properties": {"jsonrpc": {"const": "2.0"}, "method": {"const": name},
                               "params": self._params_schema(entry)}})
            for name, entry in self.notifications.items()}

    def _validator(self, schema):
        return jsonschema.Draft7Validator(schema, resolver=self.resolver)

    @staticmethod
    def _params_schema(entry):
        return {"type": "object", "additionalProperties": False,
                "properties": {p["name"]: p["schema"] for p in entry["params"]},
                "required": [p["name"] for p in entry["params"] if p.get("required")]}

    def problems(self, method, text):
        """What is wrong with one received message; empty when it is valid."""
        try:
            value = json.loads(text)
        except ValueError as e:
            return ["not JSON: %s" % e]
        if isinstance(value, list):  # a batch's replies
            if not value:
                return ["empty batch reply"]
            return [p for item in value for p in self.problems(None, json.dumps(item))]
        if not isinstance(value, dict):
            return ["neither an object nor an array"]
        if "method" in value:
            name = value["method"]
            if name not in self.notification_validators:
                return ["unknown notification %r" % name]
            return [e.message for e in self.notification_validators[name].iter_errors(value)]
        if "result" not in value and "error" in value and self.error_reply.is_valid(value):
            return []
        if method is not None:
            if method not in self.replies:
                return ["a reply to %r, which must not be answered or is unknown" % method]
            return [e.message for e in self.replies[method].iter_errors(value)]
        # A reply to a request the client did not name: it must fit some method.
        if any(v.is_valid(value) for v in self.replies.values()):
            return []
        return ["a reply that fits no method's result"]


def validate_dir(protocol, directory):
    seen = set()
    messages = 0
    failures = 0
    for path in sorted(glob.glob(os.path.join(directory, "*.jsonl"))):
        with open(path, encoding="utf-8") as f:
            for number, line in enumerate(f, 1):
                if not line.endswith("\n"):
                    continue  # a test cut off mid-write
                record = json.loads(line)
                messages += 1
                value_key = record["text"]
                try:
                    parsed = json.loads(record["text"])
                    if isinstance(parsed, dict) and "id" in parsed:
                        parsed["id"] = 0  # replies that differ only by id are checked once
                        value_key = json.dumps(parsed, sort_keys=True)
                except ValueError:
                    pass
                key = (record.get("method"), value_key)
                if key in seen:
                    continue
                seen.add(key)
                problems = protocol.problems(record.get("method"), record["text"])
                if problems:
                    failures += 1
                    if failures <= 50:
                        print("%s:%d: %s (reply to %s): %s" % (os.path.basename(path), number, record["text"][:300],
                                                               record.get("method"), "; ".join(problems[:3])))
    print("%d messages received by the tests, %d distinct, %d not as described" % (messages, len(seen), failures))
    if messages == 0:
        print("no messages were recorded: is USBMEDIA_WIRE_LOG_DIR passed to the tests?")
        return 1
    return 1 if failures else 0


def self_test(protocol):
    """Known-good messages pass and known-wrong ones fail."""
    good = [
        ("ping", '{"id":7,"jsonrpc":"2.0","result":true}'),
        ("playUSB", '{"error":{"code":-1,"message":"E: No Song to play!"},"id":3,"jsonrpc":"2.0","result":{"success":false}}'),
        ("usbConnectionEvent", '{"id":4,"jsonrpc":"2.0"}'),
        ("getFileListUSB", '{"id":1,"jsonrpc":"2.0","result":{"currIndex":0,"filelist":null,"totalCount":0}}'),
        (None, '{"error":{"code":-32601,"message":"Method not found"},"id":null,"jsonrpc":"2.0"}'),
        (None, '[{"id":1,"jsonrpc":"2.0","result":true},{"id":2,"jsonrpc":"2.0","result":"success"}]'),
        (None, '{"jsonrpc":"2.0","method":"repeatModeChangedNotification","params":{"mode":2}}'),
        (None, '{"jsonrpc":"2.0","method":"endOfPlayListNotification","params":{"isEndOfPlaylist":true}}'),
        ("getArtistsUSB", '{"id":2,"jsonrpc":"2.0","result":{"currIndex":0,"entries":[{"ID":5,"albumCount":1,'
                          '"name":"Trio","trackCount":2}],"totalCount":1}}'),
        ("searchLibraryUSB", '{"id":2,"jsonrpc":"2.0","result":{"albums":{"currIndex":0,"entries":[],"totalCount":0},'
                             '"artists":{"currIndex":0,"entries":[],"totalCount":0},'
                             '"tracks":{"currIndex":0,"entries":[],"totalCount":0}}}'),
        ("playTracksUSB", '{"error":{"code":-12,"message":"E: Track not in this list"},"id":3,"jsonrpc":"2.0",'
                          '"result":{"success":false}}'),
        (None, '{"jsonrpc":"2.0","method":"libraryScanNotification","params":{"albums":0,"artists":0,"genres":0,'
               '"scanned":3,"state":"scanning","total":9,"tracks":3}}'),
    ]
    wrong = [
        ("ping", '{"id":7,"jsonrpc":"2.0","result":"true"}'),
        ("ping", '{"id":7,"jsonrpc":"2.0"}'),
        ("getUsbStorageCrc32", '{"id":1,"jsonrpc":"2.0","result":{"crc32":12345}}'),
        ("getFileListUSB", '{"id":1,"jsonrpc":"2.0","result":{"currIndex":0,"filelist":[]}}'),
        ("getFileListUSB", '{"id":1,"jsonrpc":"2.0","result":{"currIndex":0,"filelist":[{"name":"a"}],"totalCount":1}}'),
        ("usbConnectionEvent", '{"id":4,"jsonrpc":"2.0","result":null}'),
        ("notify", '{"id":4,"jsonrpc":"2.0","result":true}'),
        ("playUSB", '{"error":{"code":"-1"},"id":3,"jsonrpc":"2.0","result":{"success":false}}'),
        ("playUSB", '{"id":3,"jsonrpc":"1.0","result":{"success":true}}'),
        (None, '{"id":1,"jsonrpc":"2.0","result":{"nothing":"like this"}}'),
        (None, '{"jsonrpc":"2.0","method":"repeatModeChangedNotification","params":{"mode":"2"}}'),
        (None, '{"jsonrpc":"2.0","method":"trackTimeNotification","params":{"trackTime":1}}'),
        (None, '{"jsonrpc":"2.0","method":"volumeNotification","params":{}}'),
        (None, '{"jsonrpc":"2.0","method":"playerStateChangedNotification","params":{"playerState":4,"extra":1}}'),
        (None, 'not json'),
        ("getArtistsUSB", '{"id":2,"jsonrpc":"2.0","result":{"currIndex":0,"entries":null,"totalCount":0}}'),
        ("getAlbumsUSB", '{"id":2,"jsonrpc":"2.0","result":{"currIndex":0,"entries":[{"ID":5,"name":"A"}],"totalCount":1}}'),
        ("getLibraryStatusUSB", '{"id":2,"jsonrpc":"2.0","result":{"albums":0,"artists":0,"genres":0,'
                                '"scanned":0,"state":"done","total":0,"tracks":0}}'),
        (None, '{"jsonrpc":"2.0","method":"libraryScanNotification","params":{"state":"ready"}}'),
    ]
    failed = 0
    for method, text in good:
        problems = protocol.problems(method, text)
        if problems:
            failed += 1
            print("rejected a valid message: %s: %s" % (text, problems))
    for method, text in wrong:
        if not protocol.problems(method, text):
            failed += 1
            print("accepted a wrong message: %s (reply to %s)" % (text, method))
    print("self-test: %d good and %d wrong messages, %d misjudged" % (len(good), len(wrong), failed))
    return 1 if failed else 0


def main(argv):
    if len(argv) != 3:
        print(__doc__)
        return 2
    protocol = Protocol(argv[1])
    if argv[2] == "--self-test":
        return self_test(protocol)
    return validate_dir(protocol, argv[2])


if __name__ == "__main__":
    sys.exit(main(sys.argv))
