// What the tests of the page share: the page in a browser, diagctl, and files for both.

import { execFileSync, spawnSync } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath, pathToFileURL } from "node:url";

const top = fileURLToPath(new URL("../../", import.meta.url));
const require = createRequire(join(top, "build/npm/"));
const { chromium } = require("playwright-core");
export const axeSource = require.resolve("axe-core");

export const tool = join(top, "build/release/diagctl");
export const pagePath = join(top, "build/page/firmware.html");
const pageUrl = pathToFileURL(pagePath).href;

export const directory = mkdtempSync(join(tmpdir(), "page."));
export const at = (name) => join(directory, name);

export function write(name, content) {
  writeFileSync(at(name), content);
  return at(name);
}

// Runs diagctl where the files are, so that it has their bare names, as the page does.
export function diagctl(...words) {
  const { status, stdout, stderr } = spawnSync(tool, words, {
    cwd: directory,
    encoding: "latin1",
    maxBuffer: 1 << 28,
  });
  return { status, output: stdout, error: stderr.replace(/^diagctl: /, "").trimEnd() };
}

// An Intel HEX file of bytes from `base` on, `width` in a record.
export function hexText(bytes, { base = 0x90040000, width = 32, end = "\r\n", last = true } = {}) {
  const lines = [];
  const add = (address, type, data) => {
    const record = Buffer.from([data.length, address >> 8, address & 0xff, type, ...data]);
    const sum = -record.reduce((total, byte) => total + byte, 0) & 0xff;
    lines.push(
      ":" +
        Buffer.concat([record, Buffer.from([sum])])
          .toString("hex")
          .toUpperCase() +
        end,
    );
  };
  for (let i = 0; i < bytes.length; i += width) {
    const address = base + i;
    if (i === 0 || address % 0x10000 === 0) add(0, 4, [address >>> 24, (address >>> 16) & 0xff]);
    add(address & 0xffff, 0, bytes.subarray(i, i + width));
  }
  if (last) add(0, 1, []);
  return lines.join("");
}

// Bytes that differ from place to place, with the version "V9.1".
export function firmware(size) {
  const bytes = Buffer.alloc(size);
  for (let i = 0, state = 1; i < size; ++i) {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    bytes[i] = i % 0x3000 < 0x400 ? 0xff : state >>> 24;
  }
  if (size >= 0x420) bytes.fill(0, 0x400, 0x420).write("V9.1", 0x400);
  return bytes;
}

export const browser = await chromium.launch({
  executablePath: "/usr/bin/chromium",
  args: ["--no-sandbox"],
});

export const requests = new Set(); // of all pages
export const mistakes = []; // uncaught errors, and what the policy has blocked

export async function openPage(options = {}) {
  const page = await browser.newPage({ viewport: { width: 1000, height: 800 }, ...options });
  page.on("request", (request) => requests.add(request.url().replace(/^(blob:).*/, "$1")));
  page.on("pageerror", (error) => mistakes.push(error.message));
  page.on("console", (message) => mistakes.push(message.text()));
  await page.goto(pageUrl);
  return page;
}

// Opens the files and returns their cards, once each has its verdict.
export async function openFiles(page, ...names) {
  await page.setInputFiles("#input", names.map(at));
  const shown = names.filter((name) => !name.endsWith(".sum"));
  for (const name of shown) await card(page, name).locator(".verdict").first().waitFor();
  return shown.map((name) => card(page, name));
}

export function card(page, name) {
  return page.locator("section.card", {
    has: page.getByRole("heading", { level: 2, name, exact: true }),
  });
}

// What a click saves.
export async function saved(page, locator) {
  const [download] = await Promise.all([page.waitForEvent("download"), locator.click()]);
  const chunks = await (await download.createReadStream()).toArray();
  return { name: download.suggestedFilename(), text: Buffer.concat(chunks).toString("latin1") };
}

export async function end() {
  await browser.close();
  rmSync(directory, { recursive: true });
}

export function run(program, words, options) {
  return execFileSync(program, words, { encoding: "utf8", ...options });
}

export { pageUrl };
