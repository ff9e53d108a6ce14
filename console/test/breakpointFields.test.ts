import { describe, expect, it } from "vitest";

import { FieldError, readFields, type BreakpointKind, type FieldValues } from "../src/breakpointFields";

const nothing: FieldValues = { file: "", line: "", lambda: "", function: "", condition: "", messageId: "" };
const read = (kind: BreakpointKind, values: Partial<FieldValues>) =>
    readFields(kind, { ...nothing, ...values });

/** The field that is wrong, and what is said of it. */
function refusal(kind: BreakpointKind, values: Partial<FieldValues>): [string, string] {
    try {
        read(kind, values);
    } catch (error) {
        if (error instanceof FieldError) {
            return [error.field, error.message];
        }
    }
    throw new Error("it was not refused");
}

describe("the fields of a breakpoint", () => {
    it("tell a line, one of its lambdas, a function, or a file alone", () => {
        const file = "/home/me/fit.py";
        expect(read("line", { file: ` ${file} `, line: " 12 " })).toEqual({
            fileName: file,
            location: { lineNumber: 12 },
        });
        expect(read("line", { file, line: "12", lambda: "0", condition: " n > 3 " })).toEqual({
            fileName: file,
            location: { lineNumber: 12, anonymousIndex: 0 },
            expression: "n > 3",
        });
        expect(read("function", { file, function: "Fit.run" })).toEqual({
            fileName: file,
            location: { localFunction: "Fit.run" },
        });
        expect(read("file", { file, condition: "n" })).toEqual({ fileName: file, expression: "n" });
    });

    it("count only where their kind asks for them", () => {
        const all = { file: "a.py", line: "x", lambda: "x", function: "", condition: "", messageId: "" };
        expect(read("file", all)).toEqual({ fileName: "a.py" });
        expect(read("ERROR", { ...all, messageId: " ValueError" })).toEqual({
            type: "ERROR",
            messageId: "ValueError",
        });
    });

    it("are refused one by one, with what is accepted", () => {
        expect(refusal("file", { file: " " })).toEqual([
            "file",
            "Which file? A path or the name of a command, <command 3>.",
        ]);
        expect(refusal("line", { file: "a.py" })).toEqual([
            "line",
            "Which line? A whole number from 1 is accepted.",
        ]);
        for (const line of ["0", "-1", "1.5", "1e3", "0x10", "two", "2147483648"]) {
            const message = `${line} is no line. A whole number from 1 is accepted.`;
            expect(refusal("line", { file: "a.py", line })).toEqual(["line", message]);
        }
        expect(refusal("line", { file: "a.py", line: "1", lambda: "-1" })).toEqual([
            "lambda",
            "-1 is no lambda. A whole number from 0 is accepted.",
        ]);
        expect(refusal("function", { file: "a.py" })[0]).toBe("function");
        expect(refusal("WARNING", {})[0]).toBe("messageId");
    });
});
