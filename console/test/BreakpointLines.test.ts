import { beforeEach, describe, expect, it } from "vitest";

import { BreakpointLines } from "../src/BreakpointLines";

let lines: BreakpointLines;

beforeEach(() => {
    lines = new BreakpointLines();
});

function markedLines(): number[] {
    return lines.marks.map(({ line }) => line);
}

describe("breakpoints of a text", () => {
    it("come and go", () => {
        lines.toggle(3);
        lines.toggle(1);
        expect(lines.marks).toEqual([
            { line: 1, condition: "" },
            { line: 3, condition: "" },
        ]);
        lines.toggle(3);
        expect(markedLines()).toEqual([1]);
        lines.clear();
        expect(lines.marks).toEqual([]);
    });

    it("have a condition, which a breakpoint is made for where there is none", () => {
        lines.setCondition(2, " x > 1 ");
        expect(lines.conditionOf(2)).toBe("x > 1");
        lines.setCondition(2, "");
        expect(lines.conditionOf(2)).toBe("");
        lines.toggle(2);
        expect(lines.conditionOf(2)).toBeUndefined();
    });

    it.each<[string, string, string, number[], number[]]>([
        ["a line is edited", "a\nb\nc", "a\nbb\nc", [1, 2, 3], [1, 2, 3]],
        ["a line comes before", "a\nb", "x\na\nb", [1, 2], [2, 3]],
        ["a line comes behind", "a\nb", "a\nb\nx", [1, 2], [1, 2]],
        ["a line comes between", "a\nb", "a\n\nb", [1, 2], [1, 3]],
        ["a line is broken in two", "ab\nc", "a\nb\nc", [1, 2], [1, 3]],
        ["two lines are joined", "a\nb\nc", "ab\nc", [1, 2, 3], [1, 2]],
        ["a line goes", "a\nb\nc", "a\nc", [1, 2, 3], [1, 2]],
        ["all lines go", "a\nb\nc", "", [1, 2, 3], [1]],
        ["one of two equal lines goes", "a\na\nb", "a\nb", [3], [2]],
        ["nothing changes", "a\nb", "a\nb", [2], [2]],
    ])("stay with their lines when %s", (_what, before, after, marked, expected) => {
        for (const line of marked) {
            lines.toggle(line);
        }
        lines.follow(before, after);
        expect(markedLines()).toEqual(expected);
    });
});
