// What the build puts into the page.

declare module "firmware-module" {
  const bytes: Uint8Array<ArrayBuffer>;
  export default bytes;
}

declare module "worker-source" {
  const source: string;
  export default source;
}

// Where the browser enforces that no text becomes markup or code.
interface Window {
  trustedTypes?: {
    createPolicy<Rules extends { createScriptURL(url: string): string }>(
      name: string,
      rules: Rules,
    ): Rules;
  };
}
