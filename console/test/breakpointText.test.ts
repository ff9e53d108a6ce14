import { expect, it } from "vitest";
import type { Breakpoints } from "yvm-client";

import { textOf } from "../src/breakpointText";

it("tells each kind of breakpoint from all others", () => {
    const fileName = "fit.py";
    const texts: [Breakpoints["breakpoints"][number], string][] = [
        [{ fileName }, "fit.py, any line"],
        [{ fileName, expression: "n > 3" }, "fit.py, any line if n > 3"],
        [{ fileName, location: { lineNumber: 11 } }, "fit.py:11"],
        [{ fileName, location: { lineNumber: 11 }, lineNumber: 12 }, "fit.py:12, set on line 11"],
        [{ fileName, location: { lineNumber: 12, anonymousIndex: 0 } }, "fit.py:12, outside its lambdas"],
        [
            { fileName, location: { lineNumber: 12, anonymousIndex: 2 }, expression: "n", lineNumber: 12 },
            "fit.py:12, lambda 2 if n",
        ],
        [{ fileName, location: { localFunction: "Fit.run" } }, "fit.py, function Fit.run"],
        [{ type: "WARNING" }, "Warnings"],
        [{ type: "ERROR", messageId: "ValueError" }, "Errors that nobody catches: ValueError"],
        [{ type: "LATER" as "ERROR", messageId: "x" }, "LATER: x"],
    ];
    for (const [breakpoint, text] of texts) {
        expect(textOf(breakpoint)).toBe(text);
    }
});
