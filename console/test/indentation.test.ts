import { describe, expect, it } from "vitest";

import { indentationAfter } from "../src/indentation";

describe("indentationAfter", () => {
    it.each([
        ["x = 1", ""],
        ["    x = 1", "    "],
        ["def f():", "    "],
        ["def f():\n    if x:  ", "        "],
        ["def f():\n", ""],
    ])("behind %j is %j", (before, indentation) => {
        expect(indentationAfter(before)).toBe(indentation);
    });
});
