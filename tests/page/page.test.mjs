// The firmware page in a browser, compared with diagctl.

import assert from "node:assert/strict";
import { chmodSync, copyFileSync, mkdirSync, readFileSync, truncateSync } from "node:fs";
import { after, before, test } from "node:test";

import {
  at,
  axeSource,
  card,
  diagctl,
  directory,
  end,
  firmware,
  hexText,
  mistakes,
  openFiles,
  openPage,
  pagePath,
  pageUrl,
  requests,
  run,
  saved,
  tool,
  write,
} from "./scene.mjs";

const good = hexText(firmware(0x23456));
const lines = good.split("\r\n");

// A file of each kind of damage that the page may meet.
const files = {
  "good.hex": good,
  "other.hex": hexText(firmware(0x23456).fill(7, 0x1000, 0x1010).subarray(0, 0x22000)),
  "lf.hex": hexText(firmware(0x3000), { width: 16, end: "\n" }),
  "gap.hex":
    hexText(firmware(0x500), { last: false }) + hexText(firmware(0x500), { base: 0x90100000 }),
  "sum.hex": good.replace(lines[20], lines[20].slice(0, -2) + "00"),
  "lost.hex": good.replace(lines[30] + "\r\n", ""),
  "cut.hex": good.slice(0, 5000),
  "many.hex": good.replaceAll("A", "a"),
  "far.hex": hexText(firmware(0x500), { base: 0x27910000 }),
  "empty.hex": "",
  "text.hex": "This is no firmware.\n<b>Not even <script>alert(1)</script></b>\n",
  "plain.bin": Buffer.concat([Buffer.from([4, 0x90]), firmware(0x1234)]),
  "short.bin": "x",
  "empty.rlg": "",
  "run.rlg": Buffer.from([4, 0x90, 0xdd, 1]),
};

const event = (seconds, name, members) =>
  JSON.stringify({
    time: new Date(Date.UTC(2026, 10, 25, 10, 0, seconds)).toISOString(),
    event: name,
    ...members,
  });

const failure = {
  text: "CSP Update Failed.",
  cause: "the board has refused the data",
  next: "update again",
};
// What diagctl --json has printed in an update that failed.
const log = [
  event(0, "found", { version: "V9.1", expected: "" }),
  event(1, "progress", { phase: "writing", percent: 0, text: "Sending Data 0%" }),
  event(5, "progress", { phase: "writing", percent: 40, text: "Sending Data 40%" }),
  "<img src=x onerror=alert(1)> no event",
  event(50, "line", { text: "CSP Update Failed.\u202e" }),
  event(51, "result", { status: 1, ...failure }),
];

before(() => {
  for (const [name, content] of Object.entries(files)) write(name, content);
  write("update.json", log.join("\n") + "\n");
  write("cut.log", log.slice(0, 5).join("\n"));
  write(
    "read.jsonl",
    event(0, "line", { text: "CSP Read Success." }) +
      "\n" +
      event(1, "result", { status: 0, text: "" }),
  );
  write("picture.png", "x");
  mkdirSync(at("stick"));
  diagctl("convert", "good.hex", "packed.rlg");
  write("torn.rlg", readFileSync(at("packed.rlg")).subarray(0, 0x8000));
  copyFileSync(at("packed.sum"), at("torn.sum"));
});
after(end);

test("reports and pictures are diagctl's, byte for byte", async () => {
  const names = ["packed.rlg", "packed.sum", "torn.rlg", "torn.sum", ...Object.keys(files)];
  // The browser drops a page's downloads after the tenth of a second.
  for (let i = 0; i < names.length; i += 4) {
    const page = await openPage();
    for (const shown of await openFiles(page, ...names.slice(i, i + 4))) {
      const name = await shown.locator("h2").innerText();
      const report = await saved(page, shown.getByRole("button", { name: "Save the report" }));
      assert.equal(report.name, `${name}.txt`);
      assert.equal(report.text, diagctl("check", "--all", name).output, name);
      diagctl("check", name, "--svg", "tool.svg");
      const picture = await saved(page, shown.getByRole("button", { name: "Save the picture" }));
      assert.equal(picture.text, readFileSync(at("tool.svg"), "latin1"), name);
    }
    await page.close();
  }
});

test("shows every finding with its line and what to do", async () => {
  const page = await openPage();
  const names = Object.keys(files);
  for (const shown of await openFiles(page, ...names)) {
    const name = await shown.locator("h2").innerText();
    const events = diagctl("check", "--all", "--json", name)
      .output.trim()
      .split("\n")
      .map((line) => JSON.parse(line));
    const summary = events.find((each) => each.event === "summary");
    const findings = events.filter((each) => each.event === "finding");
    const more = shown.getByRole("button", { name: /^Show / });
    if (findings.length > 20) await more.click();
    const rows = await shown
      .locator("tbody tr")
      .evaluateAll((all) => all.map((row) => [...row.cells].map((each) => each.textContent)));
    const expected = findings.map(({ severity, line, text, next }) => [
      severity,
      line?.toLocaleString("en-US") ?? "",
      text,
      next,
    ]);
    assert.deepEqual(rows, expected, name);
    const facts = await shown.locator("dl").innerText();
    assert.ok(facts.includes(/ {2}version {4}(.*)/.exec(diagctl("check", name).output)[1]), facts);
    assert.ok(facts.includes(`${summary.bytes.toLocaleString("en-US")} byte`), facts);
    const verdict = await shown.locator(".verdict").innerText();
    assert.equal(verdict.startsWith("✓"), summary.errors === 0, verdict);
  }
  await page.close();
});

test("refuses what is no image, or too large, as diagctl does", async () => {
  write("huge.hex", "");
  truncateSync(at("huge.hex"), 0x10000001);
  const page = await openPage();
  for (const shown of await openFiles(page, "picture.png", "huge.hex")) {
    const name = await shown.locator("h2").innerText();
    assert.ok((await shown.locator(".verdict").innerText()).includes(diagctl("check", name).error));
  }
  await page.close();
});

test("saves for the stick what diagctl prepare writes", async () => {
  const page = await openPage();
  const shown = await openFiles(page, "good.hex", "gap.hex", "lost.hex");
  const expected = [["csp_prog.rlg", "csp_prog.sum"], ["csp_prog.hex"]];
  for (const [i, name] of ["good.hex", "gap.hex"].entries()) {
    assert.equal(diagctl("prepare", name, "stick").status, 0);
    await shown[i].getByRole("button", { name: "Save for the stick" }).click();
    const links = shown[i].getByRole("link");
    await links.first().waitFor();
    assert.deepEqual(
      await links.allInnerTexts(),
      expected[i].map((each) => `Save ${each}`),
    );
    for (const [j, each] of expected[i].entries()) {
      const file = await saved(page, links.nth(j));
      assert.equal(file.name, each);
      assert.equal(file.text, readFileSync(at(`stick/${each}`), "latin1"));
    }
  }
  await shown[2].getByRole("button", { name: "Save for the stick" }).click();
  const reason = diagctl("prepare", "lost.hex", "stick").error;
  await shown[2].getByRole("alert").getByText(reason).waitFor();
  assert.equal(await shown[2].getByRole("link").count(), 0);
  await page.close();
});

async function compare(page, left, right) {
  await page.getByLabel("A", { exact: true }).selectOption(left);
  await page.getByLabel("B", { exact: true }).selectOption(right);
  await page.getByRole("button", { name: "Compare" }).click();
  const shown = card(page, `${left} and ${right}`);
  await shown.locator(".verdict").first().waitFor();
  return shown;
}

test("compares as diagctl diff does", async () => {
  const page = await openPage();
  await openFiles(page, "good.hex", "other.hex", "packed.rlg", "lost.hex");
  const shown = await compare(page, "good.hex", "other.hex");
  const text = diagctl("diff", "good.hex", "other.hex", "--svg", "diff.svg").output;
  assert.equal(
    (await saved(page, shown.getByRole("button", { name: "Save the list" }))).text,
    text,
  );
  const svg = await saved(page, shown.getByRole("button", { name: "Save the picture" }));
  assert.equal(svg.text, readFileSync(at("diff.svg"), "latin1"));
  const rows = await shown.locator("tbody tr").allInnerTexts();
  assert.equal(
    rows.join("\n"),
    text
      .match(/^.* differ$/gm)
      .join("\n")
      .replace(/ to |: | bytes differ/g, (mark) => (mark.endsWith("differ") ? "" : "\t")),
  );

  const map = shown.locator(".map");
  await map.focus();
  for (let i = 0; i < 4; ++i) await page.keyboard.press("ArrowRight");
  await shown.getByText("90041000 to 900413FF: different").waitFor();
  await page.keyboard.press("Enter");
  const bytes = await shown.locator("pre").innerText();
  assert.ok(bytes.includes("90041000 ≠ A"), bytes);
  assert.ok(text.includes(bytes.split("\n")[1].slice(12)), "B's row is diff's");

  const equal = await compare(page, "good.hex", "packed.rlg");
  await equal.getByText("The images are equal.").waitFor();
  const refusal = await (
    await compare(page, "good.hex", "lost.hex")
  )
    .locator(".verdict")
    .innerText();
  assert.ok(refusal.includes(diagctl("diff", "good.hex", "lost.hex").error), refusal);
  await page.close();
});

test("the map shows cells by mouse and by keys, and their bytes", async () => {
  const page = await openPage();
  const [shown] = await openFiles(page, "gap.hex");
  const map = shown.locator(".map");
  const status = shown.locator("output");
  await map.focus();
  const expectStatus = (text) => shown.locator("output", { hasText: text }).waitFor();
  const steps = [
    ["Home", "90040000 to 900403FF: 1,024 bytes, erased (FF)"],
    ["ArrowRight", "90040400 to 900407FF: 256 bytes, version text"],
    ["End", "9004FC00 to 9004FFFF: 0 bytes, no data"],
    ["ArrowDown", "9010FC00 to 9010FFFF: 0 bytes, no data"],
    ["PageUp", "9004FC00 to"],
    ["PageDown", "9010FC00 to"],
    ["Home", "90100000 to 901003FF: 1,024 bytes"],
    ["ArrowUp", "90040000 to"],
    ["ArrowLeft", "90040000 to"],
    ["ArrowRight", "90040400 to"],
  ];
  for (const [key, text] of steps) {
    await page.keyboard.press(key);
    await expectStatus(text);
  }
  const pre = shown.locator("pre");
  assert.equal(await pre.count(), 0, "only Enter shows bytes");
  await page.keyboard.press("Enter");
  await pre.waitFor();
  const rows = (await pre.innerText()).trimEnd().split("\n");
  assert.equal(rows.length, 64);
  assert.equal(
    rows[0],
    "90040400 56 39 2E 31 00 00 00 00 00 00 00 00 00 00 00 00  |V9.1............|",
  );
  assert.ok(rows[63].endsWith(" -- --  |                |"));
  await page.keyboard.press("ArrowLeft");
  await shown.locator("pre", { hasText: "90040000 FF FF" }).waitFor();
  await page.keyboard.press("Escape");
  await pre.waitFor({ state: "hidden" });

  const box = await map.boundingBox();
  const cell = await map.evaluate((field) => (field.clientWidth - 45) / 64);
  await page.mouse.move(box.x + 44 + 1.5 * cell, box.y + 20);
  await expectStatus("90040400 to 900407FF: 256 bytes, version text");
  await page.mouse.click(box.x + 44 + 0.5 * cell, box.y + 20 + 17 + 18);
  await shown.locator("pre", { hasText: "90100000 FF" }).waitFor();
  assert.ok((await status.innerText()).startsWith("90100000"));
  await page.close();
});

test("a log becomes a timeline with cause and next step", async () => {
  const page = await openPage();
  const [update, cut, read] = await openFiles(page, "update.json", "cut.log", "read.jsonl");
  assert.equal(await update.locator("img").count(), 0);
  const verdict = await update.locator(".verdict").innerText();
  for (const text of [failure.text, `Cause: ${failure.cause}.`, `What to do: ${failure.next}.`])
    assert.ok(verdict.includes(text), verdict);
  const items = (await update.locator("li").allInnerTexts()).map((item) =>
    item.replace(/\s+/g, " "),
  );
  const expected = [
    "+0.0 s on the medium: V9.1",
    "+1.0 s writing, 40 %, 4.0 s",
    "+5.0 s <img src=x onerror=alert(1)> no event",
    "+5.0 s no line arrived, 45.0 s",
    "+50.0 s CSP Update Failed.\\u{202E}",
    "+51.0 s ended with status 1: CSP Update Failed.",
  ];
  expected.forEach((text, i) => assert.ok(items[i].startsWith(text), items[i]));
  const text = await saved(page, update.getByRole("button", { name: "Save as text" }));
  assert.equal(text.name, "update.json.txt");
  assert.match(text.text, /^2026-11-25T10:00:01\.000Z {5}\+1\.0 s {2}writing, 40 %, 4\.0 s$/m);
  assert.match(text.text, /^What to do: update again\.$/m);
  await cut
    .locator("li", { hasText: "Cause: the board has refused the data or fallen silent" })
    .waitFor();
  assert.ok(
    (await cut.locator(".verdict").innerText()).includes("The log ends before the command does"),
  );
  assert.ok((await read.locator(".verdict").innerText()).includes("Success"));
  await page.close();
});

test("8 MiB are checked with progress and without freezing the page", async () => {
  write("large.hex", hexText(firmware(0x800000)));
  const page = await openPage();
  await page.evaluate(() => {
    window.ticks = 0;
    window.stages = new Set();
    new MutationObserver(() => {
      const bar = document.querySelector(".card progress");
      if (bar) window.stages.add(`${bar.previousSibling.textContent} ${bar.value}`);
    }).observe(document.getElementById("cards"), {
      subtree: true,
      childList: true,
      characterData: true,
    });
    setInterval(() => document.querySelector(".card progress") && ++window.ticks, 10);
  });
  const begin = performance.now();
  const [shown] = await openFiles(page, "large.hex");
  console.log(`8 MiB checked in ${Math.round(performance.now() - begin)} ms`);
  assert.ok((await shown.locator("dl").innerText()).includes("8,388,608 bytes in 1,024 blocks"));
  const { ticks, stages } = await page.evaluate(() => ({
    ticks: window.ticks,
    stages: [...window.stages],
  }));
  assert.ok(ticks > 5, `${ticks} ticks`);
  assert.ok(
    stages.some((stage) => /^reading \d/.test(stage)) &&
      stages.some((stage) => /^checking/.test(stage)),
    stages.join(),
  );
  await page.close();
});

test("takes dropped files, and a checksum that comes later", async () => {
  const page = await openPage();
  const dropFile = (name, bytes) =>
    page.evaluate(
      ([fileName, content]) => {
        const dataTransfer = new DataTransfer();
        dataTransfer.items.add(new File([new Uint8Array(content)], fileName));
        document
          .getElementById("drop")
          .dispatchEvent(new DragEvent("drop", { bubbles: true, cancelable: true, dataTransfer }));
      },
      [name, [...bytes]],
    );
  await dropFile("a.rlg", readFileSync(at("torn.rlg")));
  await card(page, "a.rlg").getByText("no a.sum: other damage cannot be seen without it").waitFor();
  await dropFile("A.SUM", readFileSync(at("torn.sum")));
  await card(page, "a.rlg").getByText("differs from a.sum").waitFor();
  await card(page, "a.rlg").getByRole("button", { name: "Remove" }).click();
  assert.equal(await page.locator(".card").count(), 0);
  await page.close();
});

test("names and texts of files are never markup, and nothing leaves the page", async () => {
  const name = "<img src=x onerror=alert(1)>\u202egpj.hex";
  write(name, good);
  const page = await openPage();
  await page.setInputFiles("#input", at(name));
  const heading = page.locator(".card h2", {
    hasText: "<img src=x onerror=alert(1)>\\u{202e}gpj.hex",
  });
  await heading.waitFor();
  assert.equal(await page.locator(".card img").count(), 0);
  const blocked = await page.evaluate(async () => {
    const reasons = [];
    document.addEventListener("securitypolicyviolation", (violation) =>
      reasons.push(violation.effectiveDirective),
    );
    const fails = (act) =>
      new Promise((resolve) => resolve(act())).then(
        () => reasons.push("nothing"),
        () => {},
      );
    await fails(() => fetch("http://127.0.0.1:9/"));
    await fails(() => (document.body.lastElementChild.innerHTML = "<b>x</b>"));
    const image = new Image();
    await fails(
      () =>
        new Promise((resolve, reject) =>
          Object.assign(image, { onload: resolve, onerror: reject, src: "http://127.0.0.1:9/x" }),
        ),
    );
    return reasons;
  });
  assert.deepEqual([...new Set(blocked)].sort(), [
    "connect-src",
    "img-src",
    "require-trusted-types-for",
  ]);
  mistakes.length = 0; // the browser reports what this test has tried, but asks for none of it
  assert.ok(requests.delete("http://127.0.0.1:9/x"));
  await page.close();
});

test("the keyboard alone reaches and does everything", async () => {
  const page = await openPage();
  // From here on, since the browser needs a while to stop showing a dialog of its own.
  const chooser = page.waitForEvent("filechooser", { timeout: 0 });
  await openFiles(page, "many.hex", "good.hex", "update.json");
  await compare(page, "good.hex", "good.hex");
  const every = await page.evaluate(() => {
    const all = [...document.querySelectorAll("button, select, a, [tabindex='0'], summary")];
    const seen = all.filter((each) => each.checkVisibility());
    seen.forEach((each, i) => (each.dataset.number = i));
    return seen.length;
  });
  await page.evaluate(() => document.activeElement.blur());
  const reached = new Set();
  for (let i = 0; i < every + 5; ++i) {
    await page.keyboard.press("Tab");
    reached.add(await page.evaluate(() => document.activeElement.dataset.number));
  }
  reached.delete(undefined);
  assert.equal(reached.size, every);
  await card(page, "good.hex").getByRole("button", { name: "Save for the stick" }).focus();
  await page.keyboard.press("Enter");
  await card(page, "good.hex").getByRole("link").first().waitFor();
  await page.waitForFunction(() => document.activeElement.textContent === "Save csp_prog.rlg");
  // Who has gone on while the page works keeps the focus.
  await card(page, "good.hex").evaluate((shown) => {
    const save = shown.querySelector(".actions button");
    save.focus();
    save.click();
    shown.querySelector(".map").focus();
  });
  await card(page, "good.hex").getByRole("link").first().waitFor();
  assert.equal(await page.evaluate(() => document.activeElement.className), "map");
  await page.locator("#choose").focus();
  await page.keyboard.press("Enter");
  assert.ok((await chooser).isMultiple());
  await page.close();
});

for (const [colorScheme, width] of [
  ["light", 1000],
  ["dark", 400],
]) {
  test(`axe finds nothing, ${colorScheme} and ${width} pixels wide`, async () => {
    const page = await openPage({ colorScheme, viewport: { width, height: 800 }, bypassCSP: true });
    await openFiles(page, "many.hex", "good.hex", "update.json", "picture.png");
    await compare(page, "good.hex", "good.hex");
    await card(page, "good.hex").getByRole("button", { name: "Save for the stick" }).click();
    await card(page, "good.hex").locator(".map").focus();
    await page.keyboard.press("Enter");
    await card(page, "good.hex").locator("pre").waitFor();
    const wide = await page.evaluate(() => document.documentElement.scrollWidth - innerWidth);
    assert.ok(wide <= 0, `${wide} pixels too wide`);
    await page.addScriptTag({ path: axeSource });
    const { violations } = await page.evaluate(() => axe.run({ resultTypes: ["violations"] }));
    assert.deepEqual(
      violations.map(({ id, nodes }) => `${id}: ${nodes.map((node) => node.html)}`),
      [],
    );
    await page.close();
  });
}

test("diagctl page prints where the page is, and opens it", () => {
  const program = at("prefix/bin/diagctl");
  mkdirSync(at("prefix/bin"), { recursive: true });
  mkdirSync(at("prefix/share/diagctl"), { recursive: true });
  copyFileSync(tool, program);
  copyFileSync(pagePath, at("prefix/share/diagctl/firmware.html"));
  write("prefix/bin/xdg-open", '#!/bin/sh\necho "opened $1"\n');
  chmodSync(at("prefix/bin/xdg-open"), 0o755);
  const env = { PATH: `${at("prefix/bin")}:/usr/bin:/bin` };
  const path = `${directory}/prefix/share/diagctl/firmware.html\n`;
  assert.equal(run(program, ["page"], { env }), path);
  assert.equal(run(program, ["page", "--open"], { env }), `${path}opened ${path}`);
});

test("no page has asked for anything but itself", () => {
  assert.deepEqual([...requests].sort(), ["blob:", pageUrl]);
  assert.deepEqual(mistakes, []);
});
