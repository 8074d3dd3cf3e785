#!/usr/bin/env node
// Holds docs/protocol/openrpc.json against the OpenRPC project's own
// validator (@open-rpc/schema-utils-js, the version tests/protocol/package.json
// pins), so that generators and tools that consume it accept it: validates it
// against the meta-schema, then resolves every $ref, and prints the method count.
//
// Usage: validate_openrpc.js TOOLS_DIR OPENRPC
//   TOOLS_DIR holds the node_modules scripts/setup.sh installs
//   (~/.cache/usb-media-service/openrpc-tools).
// Exit status: 0 valid, 1 invalid, 2 usage or the validator missing.
"use strict";

const fs = require("fs");
const path = require("path");

function loadValidator(toolsDir) {
  const where = path.join(toolsDir, "node_modules", "@open-rpc", "schema-utils-js");
  try {
    return require(where);
  } catch (error) {
    console.error(`the OpenRPC validator is not in ${toolsDir} (${error.code || error.message}); ` +
                  "run scripts/setup.sh");
    process.exit(2);
  }
}

async function main(argv) {
  if (argv.length !== 2) {
    console.error("usage: validate_openrpc.js TOOLS_DIR OPENRPC");
    return 2;
  }
  const [toolsDir, documentPath] = argv;
  const utils = loadValidator(toolsDir);
  const document = JSON.parse(fs.readFileSync(documentPath, "utf8"));

  const valid = utils.validateOpenRPCDocument(document);
  if (valid !== true) {
    console.error(`${documentPath}: not a valid OpenRPC document:\n${valid.message}`);
    return 1;
  }
  let dereferenced;
  try {
    // It resolves in place: hand it a copy, the count below reads the result.
    dereferenced = await utils.dereferenceDocument(JSON.parse(JSON.stringify(document)));
  } catch (error) {
    console.error(`${documentPath}: a reference does not resolve: ${error.message}`);
    return 1;
  }
  const unresolved = JSON.stringify(dereferenced, (key, value) => (key === "$ref" ? undefined : value)) !==
      JSON.stringify(dereferenced);
  if (unresolved) {
    console.error(`${documentPath}: a $ref is left after dereferencing`);
    return 1;
  }
  console.log(`${documentPath}: valid OpenRPC ${document.openrpc}, dereferenced: ${dereferenced.methods.length} methods`);
  return 0;
}

main(process.argv.slice(2)).then((status) => process.exit(status), (error) => {
  console.error(error.stack || String(error));
  process.exit(1);
});
