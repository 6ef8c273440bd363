// The page: takes files, shows a card for each.

import { focusAfter, make, visible } from "./dom";
import { card, comparisonCard, fileCard, refused, type OpenFile } from "./files";
import { logCard } from "./log";
import { call } from "./workbench";

const kImage = /\.(hex|bin|rlg)$/i;
const kSum = /\.sum$/i;

function byId<Type extends HTMLElement>(id: string): Type {
  return document.getElementById(id) as Type;
}

const drop = byId("drop");
const input = byId<HTMLInputElement>("input");
const cards = byId("cards");
const status = byId("status");
const comparison = byId("comparison");
const choices = [byId<HTMLSelectElement>("left"), byId<HTMLSelectElement>("right")];

const open = new Map<string, { name: string; source: File; card: HTMLElement; file?: OpenFile }>();
const comparisons = new Map<HTMLElement, string[]>(); // with the files that each compares
const sums = new Map<string, File>(); // by the name of the compressed file, in lower case
let nextKey = 0;

function showChoices(): void {
  const files = [...open].filter(([, each]) => each.file);
  const isNew = comparison.hidden;
  comparison.hidden = files.length < 2;
  choices.forEach((choice, i) => {
    const before = choice.value;
    choice.replaceChildren(
      ...files.map(([key, each]) => make("option", { value: key }, visible(each.name))),
    );
    choice.value =
      !isNew && files.some(([key]) => key === before) ? before : (files.at(i)?.[0] ?? "");
  });
}

// Of an image, with the comparisons that need it.
function close(key: string): void {
  const file = open.get(key)?.file;
  if (!file) return;
  void call("close", [file.checked.file]);
  for (const [shown, keys] of comparisons) {
    if (keys.includes(key)) removeComparison(shown);
  }
}

function removeComparison(shown: HTMLElement): void {
  comparisons.delete(shown);
  shown.remove();
}

function remove(key: string): void {
  close(key);
  open.get(key)?.card.remove();
  open.delete(key);
  showChoices();
  byId("choose").focus();
}

// A card that shows the progress, and then what `make` has returned.
async function showCard(
  key: string,
  source: File,
  load: (progress: (stage: string, percent: number) => void) => Promise<HTMLElement>,
) {
  const bar = make("progress", {
    max: "100",
    value: "0",
    "aria-label": `Progress of ${visible(source.name)}`,
  });
  const stage = make("p", {}, "waiting");
  const waiting = card(source.name, () => remove(key), stage, bar);
  const before = open.get(key)?.card;
  close(key);
  if (before) before.replaceWith(waiting);
  else cards.append(waiting);
  open.set(key, { name: source.name, source, card: waiting });
  let shown: HTMLElement;
  try {
    shown = await load((text, percent) => {
      stage.textContent = text;
      bar.value = percent;
    });
  } catch (error) {
    const hint = kImage.test(source.name) ? [] : ["Nor is it a log of diagctl --json."];
    shown = card(source.name, () => remove(key), refused((error as Error).message, ...hint));
  }
  const entry = open.get(key);
  if (!entry) return; // removed meanwhile
  entry.card = shown;
  waiting.replaceWith(shown);
  const verdict = shown.querySelector(".verdict")?.textContent ?? "";
  status.textContent = `${visible(source.name)}: ${verdict}`;
}

async function openImage(key: string, source: File): Promise<void> {
  let file: OpenFile | undefined;
  await showCard(key, source, async (progress) => {
    const sum = sums.get(source.name.toLowerCase());
    const checked = await call("open", sum ? [source, sum] : [source], progress);
    file = { name: source.name, checked };
    return fileCard(file, () => remove(key));
  });
  const entry = open.get(key);
  if (entry && file) entry.file = file;
  else if (file) void call("close", [file.checked.file]);
  showChoices();
}

async function openLog(key: string, source: File): Promise<void> {
  await showCard(key, source, async (progress) => {
    progress("reading", 0);
    return logCard(source.name, await call("log", [source]), () => remove(key));
  });
}

// A checksum counts for a compressed file that is open already, too.
function takeSum(sum: File): void {
  const name = sum.name.toLowerCase().replace(kSum, ".rlg");
  sums.set(name, sum);
  for (const [key, each] of open) {
    if (each.name.toLowerCase() === name) void openImage(key, each.source);
  }
  const isAlone = ![...open.values()].some((each) => each.name.toLowerCase() === name);
  if (isAlone) status.textContent = `${visible(sum.name)} is used when ${name} is opened.`;
}

function take(files: File[]): void {
  for (const sum of files.filter((file) => kSum.test(file.name))) takeSum(sum);
  for (const file of files.filter((each) => !kSum.test(each.name))) {
    const key = String(nextKey++);
    void (kImage.test(file.name) ? openImage(key, file) : openLog(key, file));
  }
}

async function compare(): Promise<HTMLElement | null> {
  const [left, right] = choices.map((choice) => open.get(choice.value)?.file);
  if (!left || !right) return null;
  const shown = await comparisonCard(left, right, () => removeComparison(shown));
  comparisons.set(
    shown,
    choices.map((choice) => choice.value),
  );
  cards.prepend(shown);
  return shown.querySelector("h2");
}

byId("choose").addEventListener("click", () => input.click());
byId("compare").addEventListener("click", () => void focusAfter(compare));
input.addEventListener("change", () => {
  take([...(input.files ?? [])]);
  input.value = "";
});
for (const type of ["dragover", "dragleave", "drop"]) {
  document.addEventListener(type, (event) => {
    event.preventDefault();
    drop.classList.toggle("over", type === "dragover");
  });
}
document.addEventListener("drop", (event) => take([...(event.dataTransfer?.files ?? [])]));
