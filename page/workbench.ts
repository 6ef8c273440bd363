// The page's side of the worker.

import type { Calls, Reply, Request } from "./protocol";
import source from "worker-source";

export type Progress = (stage: string, percent: number) => void;

interface Pending {
  resolve: (value: never) => void;
  reject: (reason: Error) => void;
  progress: Progress;
}

// A page that is a file may start a worker only from a blob. Its address is the one text that the
// page's policy lets become code.
const rules = { createScriptURL: (url: string) => url };
const policy = window.trustedTypes?.createPolicy("worker", rules) ?? rules;
const blob = new Blob([source], { type: "text/javascript" });
const worker = new Worker(policy.createScriptURL(URL.createObjectURL(blob)));
const pending = new Map<number, Pending>();
let nextId = 0;

worker.onmessage = ({ data }: MessageEvent<Reply>) => {
  const waiting = pending.get(data.id);
  if (!waiting) return;
  if (data.progress) return waiting.progress(data.progress.stage, data.progress.percent);
  pending.delete(data.id);
  if (data.refusal !== undefined) waiting.reject(new Error(data.refusal));
  else waiting.resolve(data.value as never);
};

// Rejects with a sentence for the user.
export function call<Name extends keyof Calls>(
  name: Name,
  values: Parameters<Calls[Name]>,
  progress: Progress = () => {},
): Promise<ReturnType<Calls[Name]>> {
  return new Promise((resolve, reject) => {
    const request: Request = { id: nextId++, call: name, values };
    pending.set(request.id, { resolve, reject, progress });
    worker.postMessage(request);
  });
}
