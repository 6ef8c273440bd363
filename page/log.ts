// What the page shows of a log: how it ended, why, what to do, and when what happened.

import { button, counted, make, readable, save, visible } from "./dom";
import { card } from "./files";
import type { Advice, Entry, Timeline } from "./protocol";

function duration(seconds: number): string {
  if (seconds < 60) return `${seconds.toFixed(1)} s`;
  return `${Math.floor(seconds / 60)} min ${Math.floor(seconds % 60)} s`;
}

function sentence(text: string): string {
  return readable(text.endsWith(".") ? text : `${text}.`);
}

// The same facts for the page and for the text file.
function adviceLines(advice?: Advice): string[] {
  return advice ? [`Cause: ${sentence(advice.cause)}`, `What to do: ${sentence(advice.next)}`] : [];
}

function endLines(timeline: Timeline): string[] {
  const { status, meaning, reason, note, advice } = timeline;
  if (status === undefined)
    return ["The log ends before the command does: it was interrupted, or the log is cut off."];
  const end = status === 0 ? "Success" : "Failed";
  const lines = [
    reason ? `${end}: ${sentence(reason)}` : `${end}.`,
    ...adviceLines(advice),
    note && `Note: ${sentence(note)}`,
    `Exit status ${status}: ${meaning}.`,
  ];
  return lines.filter((line) => line !== "");
}

function entryText({ text, percent, duration: took, kind }: Entry): string {
  const reached = kind === "progress" && percent !== undefined ? `, ${percent} %` : "";
  return readable(text) + reached + (took > 0 ? `, ${duration(took)}` : "");
}

function timelineText(name: string, timeline: Timeline): string {
  const start = ({ time, seconds }: Entry) =>
    `${time.padEnd(24)} ${`+${seconds.toFixed(1)} s`.padStart(10)}  `;
  const entries = timeline.entries.flatMap((entry) => [
    start(entry) + entryText(entry),
    ...adviceLines(entry.advice).map((line) => " ".repeat(37) + line),
  ]);
  return [visible(name), ...endLines(timeline), "", ...entries, ""].join("\n");
}

function entryItem(entry: Entry): HTMLElement {
  const bar =
    entry.kind === "progress" && entry.percent !== undefined
      ? make("progress", {
          value: String(entry.percent),
          max: "100",
          "aria-label": `${entry.text}, percent`,
        })
      : undefined;
  return make(
    "li",
    { class: entry.kind },
    make("time", { title: entry.time }, `+${entry.seconds.toFixed(1)} s`),
    make(
      "div",
      {},
      make("bdi", {}, entryText(entry)),
      bar,
      ...adviceLines(entry.advice).map((line) => make("p", {}, line)),
    ),
  );
}

export function logCard(name: string, timeline: Timeline, remove: () => void): HTMLElement {
  const isGood = timeline.status === 0;
  const [end, ...why] = endLines(timeline);
  const left = timeline.entriesLeftOut;
  return card(
    name,
    remove,
    make(
      "div",
      { class: isGood ? "verdict good" : "verdict bad" },
      `${isGood ? "✓" : "✗"} ${end}`,
      ...why.map((line) => make("p", {}, line)),
    ),
    make(
      "div",
      { class: "actions" },
      button("Save as text", () => save(`${name}.txt`, timelineText(name, timeline))),
    ),
    make("h3", {}, "Timeline"),
    make("ol", { class: "timeline" }, ...timeline.entries.map(entryItem)),
    ...(left > 0
      ? [make("p", {}, `${counted(left, "entry").replace("entrys", "entries")} more.`)]
      : []),
  );
}
