// The WebAssembly module with the tool's code.

import bytes from "firmware-module";

interface Exports {
  memory: WebAssembly.Memory;
  _initialize(): void;
  clear(): void;
  argument(size: number): number;
  result(index: number): number;
  resultSize(index: number): number;
  admit(size: number): number;
  open(): number;
  close(file: number): void;
  check(file: number): number;
  checkText(file: number): number;
  checkSvg(file: number): number;
  bytes(file: number, first: number, count: number): number;
  prepare(file: number): number;
  compare(left: number, right: number): number;
  advise(): number;
  statuses(): number;
}

// The reason why there is no result.
export class Refusal extends Error {}

export class Module {
  private constructor(readonly exports: Exports) {}

  // All that the module needs of a system: the time, and no files, not even to complain to.
  static async load(): Promise<Module> {
    const badDescriptor = () => 8;
    const system = {
      clock_time_get: (_clock: number, _precision: bigint, at: number) => {
        const nanoseconds = BigInt(Date.now()) * 1_000_000n;
        new DataView(exports.memory.buffer).setBigUint64(at, nanoseconds, true);
        return 0;
      },
      fd_close: badDescriptor,
      fd_seek: badDescriptor,
      fd_write: badDescriptor,
    };
    const { instance } = await WebAssembly.instantiate(bytes, { wasi_snapshot_preview1: system });
    const exports = instance.exports as unknown as Exports;
    exports._initialize();
    return new Module(exports);
  }

  addText(text: string): void {
    const encoded = new TextEncoder().encode(text);
    this.put(this.exports.argument(encoded.length), encoded);
  }

  // Reads in pieces, so that the file is never in memory twice.
  async addFile(file: File, progress: (percent: number) => void): Promise<void> {
    const piece = 0x200000;
    const address = this.exports.argument(file.size);
    for (let at = 0; at < file.size; at += piece) {
      const read = await file.slice(at, at + piece).arrayBuffer();
      this.put(address + at, new Uint8Array(read));
      progress(Math.round((100 * Math.min(at + piece, file.size)) / file.size));
    }
  }

  bytes(count: number): Uint8Array<ArrayBuffer>[] {
    const results = Array.from({ length: Math.abs(count) }, (_, i) => {
      const start = this.exports.result(i);
      return new Uint8Array(
        this.exports.memory.buffer.slice(start, start + this.exports.resultSize(i)),
      );
    });
    if (count < 0) throw new Refusal(new TextDecoder().decode(results[0]));
    return results;
  }

  texts(count: number): string[] {
    return this.bytes(count).map((each) => new TextDecoder().decode(each));
  }

  private put(address: number, from: Uint8Array): void {
    new Uint8Array(this.exports.memory.buffer).set(from, address);
  }
}
