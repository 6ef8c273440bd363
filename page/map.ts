// The flash map: a canvas with a row for each 64 KiB that has data and a cell for each KiB. Mouse
// and arrow keys show what a cell has, Enter or a click its bytes.

import { counted, hex, make } from "./dom";
import type { CellKind, Picture, PictureRow } from "./protocol";

const kCells = 64; // in a row
const kCellBytes = 0x400;
const kRowBytes = 16; // of a row of bytes
const kLabelWidth = 44; // the upper half of the address; the lower half of a row is 0000
const kScaleHeight = 16;
const kGapHeight = 18;
const kPageRows = 8;
const kScaleStep = 16; // cells between two marks of the scale

// Rows of bytes from `first` on, for each image.
export type BytesOf = (first: number, rows: number) => Promise<string[][]>;

const dark = matchMedia("(prefers-color-scheme: dark)");
const printing = matchMedia("print");

export class FlashMap {
  readonly element: HTMLElement;
  private readonly canvas = make("canvas");
  private readonly field: HTMLElement;
  private readonly status = make("output", { class: "status" });
  private readonly zoom = make("div", { class: "zoom", hidden: true });
  private readonly kinds: Map<string, CellKind>;
  private readonly rowHeight: number;
  private readonly tops: number[] = []; // of the rows
  private readonly height: number;
  private cellWidth = 0;
  private row = 0; // the selected cell
  private column = 0;
  private zoomed?: number; // the address of the cell whose bytes are shown or awaited

  // `sides` names the images where there are two.
  constructor(
    private readonly picture: Picture,
    name: string,
    private readonly sides: string[],
    private readonly bytesOf: BytesOf,
  ) {
    this.kinds = new Map(picture.kinds.map((kind) => [kind.cell, kind]));
    this.rowHeight = picture.rows.length > 48 ? 10 : 17;
    this.height = this.layOut();
    this.canvas.style.height = `${this.height}px`; // so that the page below doesn't move later
    const keys = "Arrow keys, Home, End, Page Up and Page Down move; Enter shows the bytes, Escape hides them.";
    this.field = make(
      "div",
      { class: "map", tabindex: "0", role: "application", "aria-label": `Flash map of ${name}. ${keys}` },
      this.canvas,
    );
    const help = make("p", { class: "quiet" }, "One cell per KiB, one row per 64 KiB. ", keys);
    this.element = make("div", {}, this.legend(), this.field, this.status, help, this.zoom);
    this.listen();
  }

  private get rows(): PictureRow[] {
    return this.picture.rows;
  }

  private layOut(): number {
    let y = kScaleHeight;
    for (const row of this.rows) {
      if (row.gap) y += kGapHeight;
      this.tops.push(y);
      y += this.rowHeight;
    }
    return y + (this.picture.isCut ? kGapHeight : 0);
  }

  private legend(): HTMLElement {
    const items = this.picture.kinds.map((kind) => {
      const swatch = make("span", { class: "swatch", "aria-hidden": "true" }, kind.isLettered && kind.cell);
      swatch.style.setProperty("--light", kind.onLight);
      swatch.style.setProperty("--dark", kind.onDark);
      return make("li", {}, swatch, kind.text);
    });
    return make("ul", { class: "legend", "aria-label": "Legend" }, ...items);
  }

  private listen(): void {
    new ResizeObserver(() => this.draw()).observe(this.field);
    for (const query of [dark, printing]) query.addEventListener("change", () => this.draw());
    this.canvas.addEventListener("mousemove", (event) => this.select(this.cellAt(event), false));
    this.canvas.addEventListener("click", (event) => this.select(this.cellAt(event), true));
    this.field.addEventListener("focus", () => this.select([this.row, this.column], false));
    this.field.addEventListener("keydown", (event) => this.onKey(event));
  }

  private cellAt(event: MouseEvent): [number, number] | undefined {
    const column = Math.floor((event.offsetX - kLabelWidth) / this.cellWidth);
    const row = this.tops.findIndex((top) => event.offsetY >= top && event.offsetY < top + this.rowHeight);
    return row < 0 || column < 0 || column >= kCells ? undefined : [row, column];
  }

  private onKey(event: KeyboardEvent): void {
    const { row, column } = this;
    const targets: Record<string, [number, number]> = {
      ArrowLeft: [row, column - 1],
      ArrowRight: [row, column + 1],
      ArrowUp: [row - 1, column],
      ArrowDown: [row + 1, column],
      Home: [row, 0],
      End: [row, kCells - 1],
      PageUp: [row - kPageRows, column],
      PageDown: [row + kPageRows, column],
      Enter: [row, column],
      " ": [row, column],
    };
    const target = targets[event.key];
    if (event.key === "Escape") this.hideZoom();
    else if (target) this.select(target, event.key === "Enter" || event.key === " " || !this.zoom.hidden);
    else return;
    event.preventDefault();
  }

  private select(cell: [number, number] | undefined, isZoomed: boolean): void {
    if (!cell || this.rows.length === 0) return;
    this.row = Math.min(Math.max(cell[0], 0), this.rows.length - 1);
    this.column = Math.min(Math.max(cell[1], 0), kCells - 1);
    this.draw();
    this.status.textContent = this.describe();
    if (isZoomed) void this.showZoom();
  }

  private get address(): number {
    return this.rows[this.row]!.address + this.column * kCellBytes;
  }

  private describe(): string {
    const { cells, sizes } = this.rows[this.row]!;
    const kind = this.kinds.get(cells[this.column]!);
    const size = this.sides.length > 1 ? "" : `${counted(sizes[this.column]!, "byte")}, `;
    return `${hex(this.address)} to ${hex(this.address + kCellBytes - 1)}: ${size}${kind?.text ?? ""}`;
  }

  private hideZoom(): void {
    this.zoom.hidden = true;
    delete this.zoomed;
  }

  private async showZoom(): Promise<void> {
    const { address } = this;
    this.zoomed = address;
    const images = await this.bytesOf(address, kCellBytes / kRowBytes);
    if (this.zoomed !== address) return; // another cell, by now
    const title = `Bytes of ${hex(address)} to ${hex(address + kCellBytes - 1)}`;
    const lines = images[0]!.flatMap((_, i) => this.rowsOfBytes(address + i * kRowBytes, images.map((rows) => rows[i]!)));
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
      return make("span", { class: differs ? "differs" : undefined }, `${start}${side}${row}\n`);
    });
  }

  private draw(): void {
    const width = this.field.clientWidth;
    if (width === 0) return;
    const scale = devicePixelRatio;
    this.cellWidth = Math.min(16, (width - kLabelWidth - 1) / kCells);
    this.canvas.style.width = `${width}px`;
    this.canvas.width = Math.round(width * scale);
    this.canvas.height = Math.round(this.height * scale);
    const context = this.canvas.getContext("2d")!;
    context.scale(scale, scale);
    context.textBaseline = "middle";
    const onDark = dark.matches && !printing.matches;
    this.drawScale(context, onDark);
    this.rows.forEach((row, i) => this.drawRow(context, row, this.tops[i]!, onDark));
    if (this.picture.isCut) this.drawText(context, "more data", kLabelWidth, this.height - kGapHeight / 2, onDark);
    this.drawSelection(context);
  }

  private drawText(context: CanvasRenderingContext2D, text: string, x: number, y: number, onDark: boolean): void {
    context.font = "12px ui-monospace, monospace";
    context.textAlign = "left";
    context.fillStyle = onDark ? "#b4b4b4" : "#555555";
    context.fillText(text, x, y);
  }

  private drawScale(context: CanvasRenderingContext2D, onDark: boolean): void {
    for (let i = 0; i < kCells; i += kScaleStep) {
      const text = "+" + hex(i * kCellBytes).slice(4);
      this.drawText(context, text, kLabelWidth + i * this.cellWidth, kScaleHeight / 2, onDark);
    }
  }

  private drawRow(context: CanvasRenderingContext2D, row: PictureRow, top: number, onDark: boolean): void {
    const middle = top + this.rowHeight / 2;
    if (row.gap) this.drawText(context, row.gap, kLabelWidth, top - kGapHeight / 2, onDark);
    if (this.rowHeight > 12 || row.gap || row === this.rows[0] || row.address % 0x80000 === 0)
      this.drawText(context, hex(row.address).slice(0, 4), 0, middle, onDark);
    context.fillStyle = onDark ? "#585858" : "#b8b8b8"; // shows between the cells
    context.fillRect(kLabelWidth, top, kCells * this.cellWidth + 1, this.rowHeight + 1);
    for (let i = 0; i < kCells; ++i) this.drawCell(context, row.cells[i]!, kLabelWidth + i * this.cellWidth, top, onDark);
  }

  private drawCell(context: CanvasRenderingContext2D, cell: string, x: number, top: number, onDark: boolean): void {
    const kind = this.kinds.get(cell);
    if (!kind) return;
    const line = this.cellWidth > 6 ? 1 : 0.5;
    context.fillStyle = onDark ? kind.onDark : kind.onLight;
    context.fillRect(x + line, top + 1, this.cellWidth - line, this.rowHeight - 1);
    if (!kind.isLettered) return;
    context.fillStyle = "#000000";
    context.font = `bold ${Math.min(12, this.rowHeight, this.cellWidth + 3)}px sans-serif`;
    context.textAlign = "center";
    context.fillText(cell, x + (this.cellWidth + line) / 2, top + this.rowHeight / 2 + 1);
  }

  private drawSelection(context: CanvasRenderingContext2D): void {
    const top = this.tops[this.row];
    if (top === undefined) return;
    const box: [number, number, number, number] = [
      kLabelWidth + this.column * this.cellWidth,
      top,
      this.cellWidth + 1,
      this.rowHeight + 1,
    ];
    for (const [colour, width] of [["#ffffff", 4], ["#000000", 2]] as const) {
      context.strokeStyle = colour;
      context.lineWidth = width;
      context.strokeRect(...box);
    }
  }
}
