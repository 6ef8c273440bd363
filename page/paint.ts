// How the flash map is laid out and painted.

import { hex } from "./dom";
import type { CellKind, Picture } from "./protocol";

export const kCells = 64; // in a row
export const kCellBytes = 0x400;
const kManyRows = 48; // which make the cells lower
const kNarrow = 560; // pixels, below which a row has two lines
const kWidestCell = 16;
const kLabelWidth = 44; // the upper half of the address; the lower half of a row's is 0000
const kScaleHeight = 16;
const kGapHeight = 18;
const kScaleStep = 16; // cells between two marks of the scale

// All in pixels.
export interface Layout {
  width: number;
  height: number;
  cellWidth: number;
  cellHeight: number;
  perLine: number; // cells
  tops: number[]; // of the rows
}

export function layOut({ rows, isCut }: Picture, width: number): Layout {
  const perLine = width < kNarrow ? kCells / 2 : kCells;
  const cellWidth = Math.min(kWidestCell, (width - kLabelWidth - 1) / perLine);
  const cellHeight = rows.length > kManyRows ? 10 : 17;
  const tops: number[] = [];
  let y = kScaleHeight;
  for (const row of rows) {
    if (row.gap) y += kGapHeight;
    tops.push(y);
    y += cellHeight * (kCells / perLine);
  }
  return { width, height: y + 1 + (isCut ? kGapHeight : 0), cellWidth, cellHeight, perLine, tops };
}

// The cell at a place, counted from the first of the first row.
export function cellAt(
  { cellWidth, cellHeight, perLine, tops }: Layout,
  x: number,
  y: number,
): number | undefined {
  const column = Math.floor((x - kLabelWidth) / cellWidth);
  const row = tops.findLastIndex((top) => y >= top);
  const line = Math.floor((y - tops[row]!) / cellHeight);
  const isInside = row >= 0 && line * perLine < kCells && column >= 0 && column < perLine;
  return isInside ? row * kCells + line * perLine + column : undefined;
}

function placeOf({ cellWidth, cellHeight, perLine, tops }: Layout, cell: number): [number, number] {
  const column = cell % kCells;
  const top = tops[Math.floor(cell / kCells)]!;
  return [
    kLabelWidth + (column % perLine) * cellWidth,
    top + Math.floor(column / perLine) * cellHeight,
  ];
}

export class Painter {
  constructor(
    private readonly context: CanvasRenderingContext2D,
    private readonly layout: Layout,
    private readonly onDark: boolean,
  ) {
    context.textBaseline = "middle";
  }

  paint({ rows, kinds, isCut }: Picture, selected: number | undefined): void {
    const { perLine, cellWidth, cellHeight, height, tops } = this.layout;
    for (let i = 0; i < perLine; i += kScaleStep)
      this.text("+" + hex(i * kCellBytes).slice(4), kLabelWidth + i * cellWidth, kScaleHeight / 2);
    const byCell = new Map(kinds.map((kind) => [kind.cell, kind]));
    rows.forEach((row, i) => {
      const top = tops[i]!;
      if (row.gap) this.text(row.gap, kLabelWidth, top - kGapHeight / 2);
      const isLabelled = cellHeight > 12 || i === 0 || row.gap || row.address % 0x80000 === 0;
      if (isLabelled) this.text(hex(row.address).slice(0, 4), 0, top + cellHeight / 2);
      for (let j = 0; j < kCells; ++j) this.cell(byCell.get(row.cells[j]!)!, i * kCells + j);
    });
    if (isCut) this.text("more data", kLabelWidth, height - kGapHeight / 2);
    if (selected !== undefined) this.selection(selected);
  }

  private text(text: string, x: number, y: number): void {
    this.context.font = "12px ui-monospace, monospace";
    this.context.textAlign = "left";
    this.context.fillStyle = this.onDark ? "#b4b4b4" : "#555555";
    this.context.fillText(text, x, y);
  }

  private cell(kind: CellKind, cell: number): void {
    const { cellWidth, cellHeight } = this.layout;
    const [x, y] = placeOf(this.layout, cell);
    this.context.fillStyle = this.onDark ? "#585858" : "#b8b8b8"; // the lines between the cells
    this.context.fillRect(x, y, cellWidth + 1, cellHeight + 1);
    this.context.fillStyle = this.onDark ? kind.onDark : kind.onLight;
    this.context.fillRect(x + 1, y + 1, cellWidth - 1, cellHeight - 1);
    if (!kind.isLettered) return;
    this.context.fillStyle = "#000000";
    this.context.font = `bold ${Math.min(12, cellHeight)}px sans-serif`;
    this.context.textAlign = "center";
    this.context.fillText(kind.cell, x + (cellWidth + 1) / 2, y + cellHeight / 2 + 1);
  }

  private selection(cell: number): void {
    const { cellWidth, cellHeight } = this.layout;
    const [x, y] = placeOf(this.layout, cell);
    for (const [colour, width] of [
      ["#ffffff", 4],
      ["#000000", 2],
    ] as const) {
      this.context.strokeStyle = colour;
      this.context.lineWidth = width;
      this.context.strokeRect(x, y, cellWidth + 1, cellHeight + 1);
    }
  }
}
