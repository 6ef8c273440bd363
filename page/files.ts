// What the page shows of a firmware file, and of two.

import {
  button,
  counted,
  facts,
  focusAfter,
  grouped,
  hex,
  make,
  readable,
  save,
  saveLink,
  table,
  visible,
} from "./dom";
import { FlashMap } from "./map";
import type { Checked, Finding } from "./protocol";
import { call } from "./workbench";

const kShown = 20; // findings and ranges, before a button shows the rest

export interface OpenFile {
  name: string;
  checked: Checked;
}

function verdict(isGood: boolean, text: string): HTMLElement {
  return make(
    "p",
    { class: isGood ? "verdict good" : "verdict bad" },
    `${isGood ? "✓" : "✗"} ${text}`,
  );
}

// A section with a heading, which the user can remove.
export function card(name: string, remove: () => void, ...content: HTMLElement[]): HTMLElement {
  const close = button("Remove", remove);
  close.setAttribute("aria-label", `Remove ${visible(name)}`);
  const heading = make("h2", { tabindex: "-1" }, make("bdi", {}, visible(name)));
  return make(
    "section",
    { class: "card" },
    make("div", { class: "head" }, heading, close),
    ...content,
  );
}

export function refused(text: string, ...more: string[]): HTMLElement {
  return make(
    "div",
    { class: "verdict bad", role: "alert" },
    `✗ ${visible(text)}`,
    ...more.map((each) => make("p", {}, each)),
  );
}

function rangeTexts({ summary, rangesLeftOut }: Checked): string[] {
  const texts = summary.ranges.slice(0, kShown).map(({ start, size }) => {
    const end = hex((parseInt(start, 16) + size - 1) >>> 0);
    return `${start} to ${end}, ${counted(size, "byte")}`;
  });
  const left = summary.ranges.length + rangesLeftOut - texts.length;
  return left > 0 ? [...texts, `${counted(left, "range")} more`] : texts;
}

function summaryFacts(checked: Checked): HTMLElement {
  const { summary } = checked;
  const size = `${counted(summary.bytes, "byte")} in ${counted(summary.blocks, "block")}`;
  return facts([
    ["Version", [readable(summary.version) || "none"]],
    ["Data", rangeTexts(checked)],
    ["Size", [size]],
    summary.text === undefined
      ? ["File", [`${counted(summary.records ?? 0, "record")}, line ends ${summary.line_ends}`]]
      : ["Checksum", [readable(summary.text)]],
  ]);
}

function findingRow({ severity, line, text, next }: Finding): string[] {
  return [severity, line === undefined ? "" : grouped(line), readable(text), next];
}

function findingsTable({ findings, summary }: Checked): HTMLElement[] {
  if (findings.length === 0) return [];
  const show = (most: number) =>
    table(
      "Findings",
      ["Severity", "Line", "What is wrong", "What to do"],
      findings.slice(0, most).map(findingRow),
    );
  const holder = make("div", {}, show(kShown));
  const total = summary.errors + summary.warnings;
  if (findings.length > kShown) {
    const which =
      findings.length === total
        ? `all ${total}`
        : `${grouped(findings.length)} of ${grouped(total)}`;
    const more = button(`Show ${which} findings`, () => {
      holder.replaceChildren(show(findings.length));
      (holder.firstElementChild as HTMLElement).focus();
    });
    holder.append(more);
  }
  return [make("h3", {}, "Findings"), holder];
}

// The file for a stick and how it gets there, or why there is none.
async function prepared(file: number): Promise<HTMLElement> {
  try {
    const saved = await call("prepare", [file]);
    const links = saved.map(({ name, bytes }) => make("li", {}, saveLink(name, bytes)));
    const [image] = saved;
    const other = image!.name.endsWith(".rlg")
      ? "Delete csp_prog.hex from the stick if it is there: the unit would take it instead."
      : "The image has gaps, which the compressed form can't have, so it stays as it is.";
    return make(
      "div",
      { class: "prepared" },
      make("p", {}, "Save into the top folder of a USB stick with a FAT file system:"),
      make("ul", {}, ...links),
      make("p", {}, `${other} Eject the stick before you pull it out.`),
    );
  } catch (error) {
    return refused((error as Error).message, "A damaged file is not saved for the stick.");
  }
}

export function fileCard({ name, checked }: OpenFile, remove: () => void): HTMLElement {
  const { file, summary, picture } = checked;
  const result = make("div", { "aria-live": "polite" });
  const actions = make(
    "div",
    { class: "actions" },
    button("Save for the stick", () => {
      result.replaceChildren(make("p", {}, "Compressing"));
      void focusAfter(async () => {
        result.replaceChildren(await prepared(file));
        return result.querySelector("a");
      });
    }),
    button("Save the report", async () => save(`${name}.txt`, await call("text", [file]))),
    button("Save the picture", async () => save(`${name}.svg`, await call("svg", [file]))),
  );
  const counts = `${counted(summary.errors, "error")}, ${counted(summary.warnings, "warning")}`;
  const map = new FlashMap(picture, visible(name), [""], async (first, rows) => [
    await call("bytes", [file, first, rows]),
  ]);
  return card(
    name,
    remove,
    verdict(summary.errors === 0, summary.errors === 0 ? counts : `${counts}: don't use this file`),
    summaryFacts(checked),
    actions,
    result,
    ...findingsTable(checked),
    make("h3", {}, "Flash map"),
    picture.rows.length > 0 ? map.element : make("p", {}, "The file has no data to show."),
  );
}

export async function comparisonCard(
  left: OpenFile,
  right: OpenFile,
  remove: () => void,
): Promise<HTMLElement> {
  const title = `${left.name} and ${right.name}`;
  try {
    const numbers: [number, number] = [left.checked.file, right.checked.file];
    const { differences, differencesLeftOut, text, picture, svg } = await call("compare", numbers);
    const count = differences.length + differencesLeftOut;
    const bytesOf = (first: number, rows: number) =>
      Promise.all(numbers.map((file) => call("bytes", [file, first, rows])));
    const map = new FlashMap(picture, visible(title), ["A", "B"], bytesOf);
    const rows = differences.map((each) => [each.first, each.last, grouped(each.bytes)]);
    return card(
      title,
      remove,
      facts([
        ["A", [visible(left.name)]],
        ["B", [visible(right.name)]],
      ]),
      count === 0
        ? verdict(true, "The images are equal.")
        : make(
            "p",
            { class: "verdict" },
            `≠ ${counted(count, "range")} differ${count === 1 ? "s" : ""}.`,
          ),
      make(
        "div",
        { class: "actions" },
        button("Save the list", () => save("differences.txt", text)),
        button("Save the picture", () => save("differences.svg", svg)),
      ),
      ...(count > 0
        ? [
            make("h3", {}, "Differences"),
            table("Differences", ["From", "To", "Bytes that differ"], rows),
          ]
        : []),
      ...(differencesLeftOut > 0
        ? [make("p", {}, `${counted(differencesLeftOut, "range")} more; "Save the list" has all.`)]
        : []),
      make("h3", {}, "Flash map"),
      map.element,
    );
  } catch (error) {
    return card(
      title,
      remove,
      refused((error as Error).message, "Only files without errors are compared."),
    );
  }
}
