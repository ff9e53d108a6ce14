import { describe, expect, it } from "vitest";

import { OutputText } from "../src/OutputText";

function written(...pieces: string[]): string {
    const output = new OutputText();
    for (const piece of pieces) {
        output.append(0, piece);
    }
    return output.runs.map((run) => run.text).join("");
}

describe("OutputText", () => {
    it("joins neighbours of one stream and keeps the order of the two", () => {
        const output = new OutputText();
        output.append(0, "a");
        output.append(0, "b");
        output.append(1, "c");
        output.append(0, "d");
        expect(output.runs).toEqual([
            { stream: 0, text: "ab" },
            { stream: 1, text: "c" },
            { stream: 0, text: "d" },
        ]);
    });

    it.each([
        [["10%\r20%\r"], "20%\r"],
        [["10%\r", "100%\ndone"], "100%\ndone"],
        [["long line\rab"], "abng line"],
        [["a\r\nb\r\n"], "a\nb\n"],
        [["a\r", "\nb"], "a\nb"],
        [["kept\n10%", "\r20%"], "kept\n20%"],
    ])("shows %j as %j", (pieces, shown) => {
        expect(written(...pieces)).toBe(shown);
    });

    it("drops the oldest text beyond its limit and counts it", () => {
        const output = new OutputText(5);
        output.append(0, "abc");
        output.append(1, "defg");
        output.append(0, "hi");
        expect(output.runs).toEqual([
            { stream: 1, text: "efg" },
            { stream: 0, text: "hi" },
        ]);
        expect(output.dropped).toBe(4);
    });
});
