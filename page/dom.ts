// Elements from texts alone: nothing here parses markup.

type Child = Node | string | undefined | false;

// An element with attributes; one that is false is left out, true is an empty one.
export function make<Tag extends keyof HTMLElementTagNameMap>(
  tag: Tag,
  attributes: Record<string, string | boolean> = {},
  ...children: Child[]
): HTMLElementTagNameMap[Tag] {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== false) element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.filter((child): child is Node | string => !!child));
  return element;
}

export function button(text: string, act: () => void): HTMLButtonElement {
  const element = make("button", { type: "button" }, text);
  element.addEventListener("click", act);
  return element;
}

// Moves the focus to what `act` returns, unless the user has moved it while `act` worked.
export async function focusAfter(act: () => Promise<HTMLElement | null>): Promise<void> {
  const before = document.activeElement;
  const result = await act();
  if (document.activeElement === before) result?.focus();
}

// A table with a row of titles.
export function table(caption: string, titles: string[], rows: Child[][]): HTMLElement {
  const head = make("tr", {}, ...titles.map((title) => make("th", { scope: "col" }, title)));
  const body = rows.map((row) => make("tr", {}, ...row.map((cell) => make("td", {}, cell))));
  const whole = make(
    "table",
    {},
    make("caption", { class: "hidden" }, caption),
    make("thead", {}, head),
    make("tbody", {}, ...body),
  );
  return make(
    "div",
    {
      class: `scroll ${caption.toLowerCase()}`,
      tabindex: "0",
      role: "region",
      "aria-label": caption,
    },
    whole,
  );
}

// A list of terms, each with one text or more.
export function facts(rows: [string, Child[]][]): HTMLElement {
  const parts = rows.flatMap(([term, values]) => [
    make("dt", {}, term),
    ...values.map((value) => make("dd", {}, value)),
  ]);
  return make("dl", {}, ...parts);
}

// Characters that don't show, or that turn the writing direction, are written out: a name must not
// look like another one.
export function visible(text: string): string {
  return text.replace(
    /[\p{C}\p{Zl}\p{Zp}]/gu,
    (character) => `\\u{${character.codePointAt(0)!.toString(16)}}`,
  );
}

// Bytes that came as characters of the same numbers, as diagctl shows them.
export function readable(text: string): string {
  const escape = (character: string) => {
    const code = character.codePointAt(0)!;
    const digits = code.toString(16).toUpperCase();
    return character === "\\"
      ? "\\\\"
      : code > 0xff
        ? `\\u{${digits}}`
        : `\\x${digits.padStart(2, "0")}`;
  };
  return text.replace(/[^ -~]|\\/gu, escape);
}

export function grouped(number: number): string {
  return number.toLocaleString("en-US");
}

export function counted(count: number, noun: string): string {
  return `${grouped(count)} ${noun}${count === 1 ? "" : "s"}`;
}

export function hex(address: number): string {
  return address.toString(16).toUpperCase().padStart(8, "0");
}

// A link that saves the bytes.
export function saveLink(
  name: string,
  content: BlobPart,
  text = `Save ${name}`,
): HTMLAnchorElement {
  const href = URL.createObjectURL(new Blob([content], { type: "application/octet-stream" }));
  return make("a", { href, download: name, class: "save" }, text);
}

export function save(name: string, content: BlobPart): void {
  const link = saveLink(name, content);
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60_000);
}
