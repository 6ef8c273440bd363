// What the build puts into the page.

declare module "firmware-module" {
  const bytes: Uint8Array<ArrayBuffer>;
  export default bytes;
}

declare module "worker-source" {
  const source: string;
  export default source;
}
