import { describe, expect, it } from "vitest";

import { progressText } from "../src/progressText";

const start = { id: 1, label: "", done: 0, total: null, rate: null, remaining: null, finished: false };

describe("the text of a progress", () => {
    it.each([
        [{ total: 10 }, "0 of 10"],
        [{ done: 3, total: 10, rate: 2.5, remaining: 2.8 }, "3 of 10 · 2.5/s · 2.8 s left"],
        [{ done: 1_500_000, rate: 123456.7 }, "1,500,000 · 123,457/s"],
        [{ done: 0.25, total: 1 }, "0.3 of 1"],
        [{ done: 1, total: 4, rate: 0.02, remaining: 150 }, "1 of 4 · 50 s each · 2 min 30 s left"],
        [{ done: 1, total: 9000, rate: 1, remaining: 8999 }, "1 of 9,000 · 1/s · 2 h 29 min left"],
        [{ done: 10, total: 10, rate: 2.5, remaining: 0, finished: true }, "10 of 10 · 2.5/s · 4.0 s"],
        [{ done: 4, total: 10, rate: 2, finished: true }, "ended at 4 of 10 · 2/s · 2.0 s"],
        [{ done: 7, finished: true }, "7"],
        [{ done: 0, total: 0, rate: 0, finished: true }, "0 of 0 · 0/s"],
    ])("of %j is %s", (progress, text) => {
        expect(progressText({ ...start, ...progress })).toBe(text);
    });
});
