// Makes a timeline of the lines that `diagctl --json` has printed.

import type { Advice, Entry, Timeline } from "./protocol";

const kMostEntries = 1000;
const kSilence = 10; // seconds without a line that are shown

type Advise = (text: string) => Advice | undefined;

interface LogEvent {
  time: string;
  event: string;
  [member: string]: unknown;
}

function parse(line: string): LogEvent | undefined {
  try {
    const value = JSON.parse(line) as LogEvent;
    return typeof value?.time === "string" && typeof value.event === "string" ? value : undefined;
  } catch {
    return undefined;
  }
}

function textOf(value: unknown): string {
  return typeof value === "string" || typeof value === "number" ? String(value) : "";
}

// What an event says, for a person.
function describe(event: LogEvent): string {
  const of = (member: string) => textOf(event[member]);
  switch (event.event) {
    case "progress":
      return of("phase");
    case "busy":
      return `the unit is busy: ${of("phase")} ${of("percent") && of("percent") + " %"}`.trimEnd();
    case "found":
      return (
        `on the medium: ${of("version")}` + (of("expected") && `, expected: ${of("expected")}`)
      );
    case "prepared":
      return `${of("file")}: version ${of("version") || "none"}, ${of("bytes")} bytes`;
    case "finding":
      return `${of("file")}${of("line") && ":" + of("line")}: ${of("severity")}: ${of("text")}`;
    case "summary":
      return `${of("file")}: ${of("errors")} errors, ${of("warnings")} warnings`;
    case "difference":
      return `${of("first")} to ${of("last")}: ${of("bytes")} bytes differ`;
    case "result":
      return `ended with status ${of("status")}${of("text") && ": " + of("text")}`;
    default:
      return of("text") + (event.cut === true ? "..." : "");
  }
}

class Builder {
  readonly entries: Entry[] = [];
  result?: LogEvent;
  private begin = NaN; // ms
  private last = NaN;

  constructor(private readonly advise: Advise) {}

  add(line: string): boolean {
    const event = parse(line);
    const time = event ? Date.parse(event.time) : NaN;
    if (!event || Number.isNaN(time)) {
      this.entries.push({
        time: "",
        seconds: this.since(this.last),
        duration: 0,
        kind: "text",
        text: line,
      });
      return false;
    }
    if (Number.isNaN(this.begin)) this.begin = time;
    else this.addSilence(event, time);
    this.last = time;
    this.addEvent(event, time);
    return true;
  }

  private since(time: number): number {
    return Number.isNaN(time) ? 0 : (time - this.begin) / 1000;
  }

  private addSilence(event: LogEvent, time: number): void {
    const duration = (time - this.last) / 1000;
    if (duration < kSilence) return;
    const text = "no line arrived";
    this.entries.push({
      time: event.time,
      seconds: this.since(this.last),
      duration,
      kind: "silence",
      text,
    });
  }

  // Lines of the same work are one entry, which a silence ends.
  private addEvent(event: LogEvent, time: number): void {
    const text = describe(event);
    const percent = typeof event.percent === "number" ? event.percent : undefined;
    const before = this.entries.at(-1);
    if (event.event === "progress" && before?.kind === "progress" && before.text === text) {
      before.duration = this.since(time) - before.seconds;
      before.percent = percent ?? before.percent;
      return;
    }
    const advice = event.event === "line" ? this.advise(text) : undefined;
    this.entries.push({
      time: event.time,
      seconds: this.since(time),
      duration: 0,
      kind: advice ? "failure" : event.event,
      text,
      ...(percent !== undefined && { percent }),
      ...(advice && { advice }),
    });
    if (event.event === "result") this.result = event;
  }
}

// Nothing when no line is an event.
export function makeTimeline(
  text: string,
  statuses: string[],
  advise: Advise,
): Timeline | undefined {
  const builder = new Builder(advise);
  const lines = text.split(/\r?\n/).filter((line) => line !== "");
  if (lines.filter((line) => builder.add(line)).length === 0) return undefined;
  const { entries, result } = builder;
  const reason = textOf(result?.text);
  const own = result?.cause
    ? { cause: textOf(result.cause), next: textOf(result.next) }
    : undefined;
  const advice = own ?? advise(reason);
  for (const entry of entries) {
    // That stands above the timeline.
    if (advice && reason.startsWith(entry.text)) delete entry.advice;
  }
  return {
    entries: entries.slice(0, kMostEntries),
    entriesLeftOut: Math.max(0, entries.length - kMostEntries),
    ...(typeof result?.status === "number" && { status: result.status }),
    meaning: typeof result?.status === "number" ? (statuses[result.status] ?? "") : "",
    reason,
    note: textOf(result?.note),
    ...(advice && { advice }),
  };
}
