// What the page and its worker exchange. Texts of files and of a unit are shown as they are, never
// as markup.

// The objects of `diagctl --json` that the page shows.
export interface Finding {
  line?: number;
  severity: "error" | "warning";
  address?: string;
  text: string;
  next: string;
}

export interface Summary {
  errors: number;
  warnings: number;
  version: string;
  ranges: { start: string; size: number }[];
  bytes: number;
  blocks: number;
  records?: number;
  line_ends?: string;
  text?: string;
}

export interface Difference {
  first: string;
  last: string;
  bytes: number;
}

export interface CellKind {
  cell: string;
  text: string;
  onLight: string;
  onDark: string;
  isLettered: boolean;
}

export interface PictureRow {
  address: number;
  cells: string;
  gap: string;
  sizes: number[];
}

export interface Picture {
  isCut: boolean;
  rows: PictureRow[];
  kinds: CellKind[];
}

export interface Checked {
  file: number; // by which later calls name it
  findings: Finding[];
  summary: Summary;
  rangesLeftOut: number;
  picture: Picture;
}

export interface Compared {
  differences: Difference[];
  differencesLeftOut: number;
  text: string;
  picture: Picture;
  svg: string;
}

export interface Saved {
  name: string;
  bytes: Uint8Array<ArrayBuffer>;
}

export interface Advice {
  cause: string;
  next: string;
}

// A line of the timeline, or several of the same work.
export interface Entry {
  time: string; // of the first, as in the log; empty for a line that is no event
  seconds: number; // since the log began
  duration: number; // seconds
  kind: string; // the event, "failure", "silence" or "text"
  text: string;
  percent?: number; // at the end of the work
  advice?: Advice;
}

export interface Timeline {
  entries: Entry[];
  entriesLeftOut: number;
  status?: number; // of the command; none when the log ends before it
  meaning: string; // of the status
  reason: string;
  note: string;
  advice?: Advice;
}

// The calls, each with what it takes and returns.
export interface Calls {
  open(file: File, sum?: File): Checked;
  close(file: number): void;
  text(file: number): string;
  svg(file: number): string;
  bytes(file: number, first: number, rows: number): string[];
  prepare(file: number): Saved[];
  compare(left: number, right: number): Compared;
  log(file: File): Timeline;
}

export interface Request {
  id: number;
  call: keyof Calls;
  values: unknown[];
}

// Progress comes before the end of a call.
export interface Reply {
  id: number;
  progress?: { stage: string; percent: number };
  value?: unknown;
  refusal?: string; // a sentence for the user
}
