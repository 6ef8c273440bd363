// The flash map: a row for each 64 KiB that has data, a cell for each KiB. Mouse and arrow keys
// show what a cell has, Enter or a click its bytes.

import { counted, hex, make } from "./dom";
import { cellAt, kCellBytes, kCells, layOut, Painter, type Layout } from "./paint";
import type { Picture, PictureRow } from "./protocol";

const kRowBytes = 16; // of a row of bytes
const kPage = 8 * kCells; // cells that Page Up and Page Down move by
const kKeys =
  "Arrow keys, Home, End, Page Up and Page Down move; Enter shows the bytes, Escape hides them.";

// Rows of bytes from `first` on, for each image.
export type BytesOf = (first: number, rows: number) => Promise<string[][]>;

const dark = matchMedia("(prefers-color-scheme: dark)");
const printing = matchMedia("print");

export class FlashMap {
  readonly element: HTMLElement;
  private readonly canvas = make("canvas");
  private readonly field: HTMLElement;
  private readonly status = make("output", { class: "status" });
  private readonly zoom = make("div", { hidden: true });
  private layout: Layout;
  private selected?: number; // cell, counted from the first of the first row
  private zoomed?: number; // the cell whose bytes are shown or awaited

  // `sides` names the images where there are two.
  constructor(
    private readonly picture: Picture,
    name: string,
    private readonly sides: string[],
    private readonly bytesOf: BytesOf,
  ) {
    const label = `Flash map of ${name}. ${kKeys}`;
    this.field = make(
      "div",
      { class: "map", tabindex: "0", role: "application", "aria-label": label },
      this.canvas,
    );
    const help = make("p", { class: "quiet" }, "One cell per KiB, one row per 64 KiB. ", kKeys);
    this.element = make("div", {}, this.legend(), this.field, this.status, help, this.zoom);
    this.layout = layOut(picture, document.body.clientWidth);
    // Before it is painted, so that nothing moves then.
    this.canvas.style.height = `${this.layout.height}px`;
    this.listen();
  }

  private legend(): HTMLElement {
    const items = this.picture.kinds.map((kind) => {
      const swatch = make(
        "span",
        { class: "swatch", "aria-hidden": "true" },
        kind.isLettered && kind.cell,
      );
      swatch.style.setProperty("--light", kind.onLight);
      swatch.style.setProperty("--dark", kind.onDark);
      return make("li", {}, swatch, kind.text);
    });
    return make("ul", { class: "legend", "aria-label": "Legend" }, ...items);
  }

  private listen(): void {
    const at = ({ offsetX, offsetY }: MouseEvent) => cellAt(this.layout, offsetX, offsetY);
    new ResizeObserver(() => this.paint()).observe(this.field);
    for (const query of [dark, printing]) query.addEventListener("change", () => this.paint());
    this.canvas.addEventListener("mousemove", (event) => this.select(at(event), false));
    this.canvas.addEventListener("click", (event) => this.select(at(event), true));
    this.field.addEventListener("focus", () => this.select(this.selected ?? 0, false));
    this.field.addEventListener("keydown", (event) => this.onKey(event));
  }

  private onKey(event: KeyboardEvent): void {
    const now = this.selected ?? 0;
    const column = now % kCells;
    const last = this.picture.rows.length * kCells - 1;
    const targets: Record<string, number> = {
      ArrowLeft: now - 1,
      ArrowRight: now + 1,
      ArrowUp: now - this.layout.perLine,
      ArrowDown: now + this.layout.perLine,
      Home: now - column,
      End: now - column + kCells - 1,
      PageUp: Math.max(column, now - kPage),
      PageDown: Math.min(last - kCells + 1 + column, now + kPage),
      Enter: now,
      " ": now,
    };
    const target = targets[event.key];
    const isEnter = event.key === "Enter" || event.key === " ";
    if (event.key === "Escape") this.hideZoom();
    else if (target === undefined) return;
    else if (target >= 0 && target <= last) this.select(target, isEnter || !this.zoom.hidden);
    event.preventDefault();
  }

  private select(cell: number | undefined, isZoomed: boolean): void {
    if (cell === undefined) return;
    if (cell !== this.selected) {
      this.selected = cell;
      this.paint();
    }
    this.status.textContent = this.describe(cell);
    if (isZoomed) void this.showZoom(cell);
  }

  private rowOf(cell: number): PictureRow {
    return this.picture.rows[Math.floor(cell / kCells)]!;
  }

  private addresses(cell: number): string {
    const first = this.rowOf(cell).address + (cell % kCells) * kCellBytes;
    return `${hex(first)} to ${hex(first + kCellBytes - 1)}`;
  }

  private describe(cell: number): string {
    const { cells, sizes } = this.rowOf(cell);
    const kind = this.picture.kinds.find((each) => each.cell === cells[cell % kCells]);
    const size = this.sides.length > 1 ? "" : `${counted(sizes[cell % kCells]!, "byte")}, `;
    return `${this.addresses(cell)}: ${size}${kind?.text}`;
  }

  private hideZoom(): void {
    this.zoom.hidden = true;
    delete this.zoomed;
  }

  private async showZoom(cell: number): Promise<void> {
    this.zoomed = cell;
    const first = this.rowOf(cell).address + (cell % kCells) * kCellBytes;
    const images = await this.bytesOf(first, kCellBytes / kRowBytes);
    if (this.zoomed !== cell) return; // another one, by now
    const title = `Bytes of ${this.addresses(cell)}`;
    const lines = images[0]!.flatMap((_, i) =>
      this.rowsOfBytes(
        first + i * kRowBytes,
        images.map((rows) => rows[i]!),
      ),
    );
    this.zoom.replaceChildren(
      make("h4", {}, title),
      make("pre", { tabindex: "0", role: "region", "aria-label": title }, ...lines),
    );
    this.zoom.hidden = false;
  }

  // A line for each image. Two that differ are marked.
  private rowsOfBytes(address: number, rows: string[]): HTMLElement[] {
    const differs = rows.length > 1 && rows[0] !== rows[1];
    return rows.map((row, i) => {
      const start = i === 0 ? hex(address) : " ".repeat(8);
      const side = rows.length > 1 ? ` ${differs ? "≠" : " "} ${this.sides[i]}` : "";
      return make("span", { class: differs && "differs" }, `${start}${side}${row}\n`);
    });
  }

  private paint(): void {
    this.layout = layOut(this.picture, this.field.clientWidth);
    const { width, height } = this.layout;
    const scale = devicePixelRatio;
    this.canvas.style.width = `${width}px`;
    this.canvas.style.height = `${height}px`;
    this.canvas.width = Math.round(width * scale);
    this.canvas.height = Math.round(height * scale);
    const context = this.canvas.getContext("2d")!;
    context.scale(scale, scale);
    new Painter(context, this.layout, dark.matches && !printing.matches).paint(
      this.picture,
      this.selected,
    );
  }
}
