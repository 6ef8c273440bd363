// Does everything that may take long, one call after another.

import { Module, Refusal } from "./module";
import type { Calls, Checked, Compared, Reply, Request } from "./protocol";
import { makeTimeline } from "./timeline";

const kMostRanges = 1000;
const kMostDifferences = 1000;
const kLargestLog = 0x4000000; // bytes
const kLogBegin = 0x10000; // bytes, in which a log has an event

const loaded = Module.load();
let progress: (stage: string, percent: number) => void = () => {};

function parseLines(lines: string): unknown[] {
  return lines
    .split("\n")
    .filter((line) => line !== "")
    .map((line) => JSON.parse(line) as unknown);
}

function cut<T>(list: T[], most: number): number {
  const leftOut = Math.max(0, list.length - most);
  list.length -= leftOut;
  return leftOut;
}

function check(module: Module, file: number): Checked {
  const [json, picture] = module.texts(module.exports.check(file));
  const objects = parseLines(json!);
  const summary = objects.pop() as Checked["summary"];
  const rangesLeftOut = cut(summary.ranges, kMostRanges);
  const findings = objects as Checked["findings"];
  return { file, findings, summary, rangesLeftOut, picture: JSON.parse(picture!) };
}

// The tool's reason why a file with this name and size is no image; nothing for one that may be.
function admit(module: Module, file: File): void {
  module.addText(file.name);
  module.texts(module.exports.admit(file.size));
}

const calls: {
  [Name in keyof Calls]: (
    module: Module,
    ...values: Parameters<Calls[Name]>
  ) => ReturnType<Calls[Name]> | Promise<ReturnType<Calls[Name]>>;
} = {
  open: async (module, file, sum) => {
    admit(module, file);
    module.addText(file.name);
    await module.addFile(file, (percent) => progress("reading", percent));
    if (sum) await module.addFile(sum, () => {});
    progress("checking", 100);
    return check(module, module.exports.open());
  },
  close: (module, file) => module.exports.close(file),
  text: (module, file) => module.texts(module.exports.checkText(file))[0]!,
  svg: (module, file) => module.texts(module.exports.checkSvg(file))[0]!,
  bytes: (module, file, first, rows) => module.texts(module.exports.bytes(file, first, rows)),
  prepare: (module, file) => {
    const parts = module.bytes(module.exports.prepare(file));
    const nameAt = (i: number) => new TextDecoder().decode(parts[i]);
    return parts.flatMap((bytes, i) => (i % 2 === 1 ? [{ name: nameAt(i - 1), bytes }] : []));
  },
  compare: (module, left, right) => {
    const [json, text, picture, svg] = module.texts(module.exports.compare(left, right));
    const differences = parseLines(json!) as Compared["differences"];
    const differencesLeftOut = cut(differences, kMostDifferences);
    return {
      differences,
      differencesLeftOut,
      text: text!,
      picture: JSON.parse(picture!),
      svg: svg!,
    };
  },
  log: async (module, file) => {
    if (file.size > kLargestLog) throw new Refusal(`${file.name}: is larger than any log`);
    const statuses = module.texts(module.exports.statuses());
    const make = (text: string) =>
      makeTimeline(text, statuses, (line) => {
        module.addText(line);
        const [cause, next] = module.texts(module.exports.advise());
        return cause === undefined ? undefined : { cause, next: next! };
      });
    const timeline = make(await file.slice(0, kLogBegin).text()) && make(await file.text());
    if (!timeline) admit(module, file);
    return timeline!;
  },
};

function sentenceOf(error: unknown): string {
  if (error instanceof Refusal) return error.message;
  if (error instanceof DOMException) return "The browser can't read the file.";
  if (error instanceof WebAssembly.RuntimeError || error instanceof RangeError)
    return "The browser has not enough memory for the file.";
  return String(error);
}

async function answer({ id, call, values }: Request): Promise<void> {
  const reply = (what: Omit<Reply, "id">) => self.postMessage({ id, ...what });
  progress = (stage, percent) => reply({ progress: { stage, percent } });
  try {
    const module = await loaded;
    module.exports.clear();
    const run = calls[call] as (module: Module, ...values: unknown[]) => unknown;
    reply({ value: await run(module, ...values) });
  } catch (error) {
    reply({ refusal: sentenceOf(error) });
  }
}

let queue = Promise.resolve();
self.onmessage = (message: MessageEvent<Request>) => {
  queue = queue.then(() => answer(message.data));
};
