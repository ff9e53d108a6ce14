import { beforeEach, describe, expect, it } from "vitest";
import type { DebugFrame, DebuggerStopped, DebugVariable } from "yvm-client";

import { DebuggerMonitor, type Stop } from "../src/DebuggerMonitor";

const frame = { fileName: "a.py", functionName: "f", lineNumber: 3, sourceLine: "x = 1" };
const outer = { ...frame, functionName: "<module>", lineNumber: 9 };
const variables: DebugVariable[] = [{ name: "x", type: "int", shape: [], text: "1" }];

/** The questions that wait for an answer. */
let questions: { answer: (frames: DebugFrame[], variables: DebugVariable[]) => void; refuse: () => void }[];
let shown: (Stop | undefined)[];
let monitor: DebuggerMonitor;

beforeEach(() => {
    questions = [];
    shown = [];
    monitor = new DebuggerMonitor(
        {
            stack: () =>
                new Promise((answerStack, refuse) => {
                    questions.push({
                        answer: (frames, locals) => {
                            answerStack(frames);
                            answerLocals(locals);
                        },
                        refuse: () => {
                            refuse(new Error("nothing is stopped"));
                        },
                    });
                }),
            locals: () =>
                new Promise((answer) => {
                    answerLocals = answer;
                }),
        },
        (stop) => shown.push(stop),
    );
});

let answerLocals: (variables: DebugVariable[]) => void;

function stopAt(level: number, reason: DebuggerStopped["reason"] = "breakpoint"): DebuggerStopped {
    const message = `level ${String(level)}`;
    return { reason, level, message, fileName: "a.py", lineNumber: 3, stackFrames: [outer, frame] };
}

async function settle(): Promise<void> {
    await new Promise((resolve) => setTimeout(resolve));
}

describe("a stop", () => {
    it("is shown at once, with the innermost frame selected, and then with its variables", async () => {
        monitor.stopped(stopAt(1));
        const frames = [
            { ...outer, selected: false },
            { ...frame, selected: true },
        ];
        const stop = { reason: "breakpoint", message: "level 1", frames };
        expect(shown).toEqual([{ ...stop, variables: undefined }]);
        questions[0]?.answer(frames, variables);
        await settle();
        expect(shown).toEqual([
            { ...stop, variables: undefined },
            { ...stop, variables },
        ]);
    });

    it("that is over is gone, and its late answers are let go", async () => {
        monitor.stopped(stopAt(1));
        monitor.resumed({ level: 1 });
        questions[0]?.answer([], variables);
        await settle();
        expect(shown).toHaveLength(2);
        expect(shown[1]).toBeUndefined();
    });

    it("that is followed by another is not shown again by its late answer", async () => {
        monitor.stopped(stopAt(1, "breakpoint"));
        monitor.resumed({ level: 1 });
        monitor.stopped(stopAt(1, "step"));
        questions[0]?.answer([], variables);
        await settle();
        expect(shown.at(-1)).toMatchObject({ reason: "step", variables: undefined });
    });

    it("on top of another gives the page back to that one, with its reason", async () => {
        monitor.stopped(stopAt(1, "error"));
        monitor.stopped(stopAt(2, "breakpoint"));
        monitor.resumed({ level: 2 });
        questions.at(-1)?.answer([{ ...outer, selected: true }], variables);
        await settle();
        expect(shown.at(-1)).toEqual({
            reason: "error",
            message: "level 1",
            frames: [{ ...outer, selected: true }],
            variables,
        });
    });

    it("of which nothing was told is found by looking, without a reason", async () => {
        const looked = monitor.look();
        questions[0]?.answer([{ ...frame, selected: true }], variables);
        await looked;
        expect(shown).toEqual([
            { reason: undefined, message: "", frames: [{ ...frame, selected: true }], variables },
        ]);
    });

    it("that is none leaves the page alone", async () => {
        const looked = monitor.look();
        questions[0]?.refuse();
        await looked;
        monitor.resumed({ level: 1 });
        monitor.forget();
        expect(shown).toEqual([]);
    });

    it("is forgotten with the connection", () => {
        monitor.stopped(stopAt(1));
        monitor.forget();
        expect(shown.at(-1)).toBeUndefined();
    });
});
