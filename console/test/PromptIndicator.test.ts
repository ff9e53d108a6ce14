import { afterEach, beforeEach, describe, expect, it, vi } from "vitest";

import { PromptIndicator } from "../src/PromptIndicator";

let element: { hidden: boolean; textContent: string; dataset: Record<string, string> };
let shown: (string | undefined)[];
let indicator: PromptIndicator;

beforeEach(() => {
    vi.useFakeTimers();
    element = { hidden: true, textContent: "", dataset: {} };
    shown = [];
    indicator = new PromptIndicator(element as unknown as HTMLElement, (state) => shown.push(state));
});

afterEach(() => {
    vi.useRealTimers();
});

describe("the state of the engine", () => {
    it("is not shown for a short command", async () => {
        indicator.show("idle");
        for (let command = 0; command < 100; command++) {
            indicator.show("busy");
            await vi.advanceTimersByTimeAsync(10);
            indicator.show("idle");
            await vi.advanceTimersByTimeAsync(10);
        }
        expect(new Set(shown)).toEqual(new Set(["idle"]));
        expect(element.textContent).toBe("idle");
    });

    it("is shown for short commands that leave no gap between them", async () => {
        for (let command = 0; command < 20; command++) {
            indicator.show("busy");
            await vi.advanceTimersByTimeAsync(10);
        }
        expect(shown).toEqual(["busy"]);
        expect(element).toEqual({ hidden: false, textContent: "busy", dataset: { state: "busy" } });
    });

    it("is shown at once where the engine waits, and hidden where nobody tells", () => {
        indicator.show("busy");
        indicator.show("paused");
        indicator.show("debug");
        indicator.show(undefined);
        expect(shown).toEqual(["paused", "debug", undefined]);
        expect(element.hidden).toBe(true);
    });
});
