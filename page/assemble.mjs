// Makes the one file of the page.
//
//   node assemble.mjs TEMPLATE STYLE SCRIPT VERSION OUTPUT

import { createHash } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";

const [template, stylePath, scriptPath, version, output] = process.argv.slice(2);
const read = (path) => readFileSync(path, "utf8").trim();
const hash = (text) => `'sha256-${createHash("sha256").update(text).digest("base64")}'`;

const style = read(stylePath);
const script = read(scriptPath);
if (/<\/(script|style)/i.test(script + style)) throw new Error("an end tag in what is embedded");

// Nothing is loaded from anywhere: only this style and script count, and the worker that the script
// makes itself.
const policy = [
  "default-src 'none'",
  `script-src ${hash(script)} 'wasm-unsafe-eval'`,
  `style-src ${hash(style)}`,
  "worker-src blob:",
  "require-trusted-types-for 'script'",
  "trusted-types worker",
  "base-uri 'none'",
  "form-action 'none'",
].join("; ");

const parts = { POLICY: policy, STYLE: style, SCRIPT: script, VERSION: version };
const page = read(template).replace(/@([A-Z]+)@/g, (_, name) => parts[name]);
writeFileSync(output, page + "\n");
