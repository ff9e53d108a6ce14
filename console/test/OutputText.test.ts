import { describe, expect, it } from "vitest";

import { OutputText, type OutputLimits, type Row } from "../src/OutputText";

const escape = "\u001b";

function outputOf(limits: Partial<OutputLimits>, ...pieces: string[]): OutputText {
    const output = new OutputText(limits);
    for (const piece of pieces) {
        output.append(0, piece);
        output.process();
    }
    return output;
}

function rowsOf(output: OutputText): Row[] {
    const rows: Row[] = [];
    for (let number = output.firstRow; number < output.endRow; number++) {
        rows.push(output.row(number));
    }
    return rows;
}

function textOf(output: OutputText): string {
    return [...output.parts()].join("");
}

function written(...pieces: string[]): string {
    return textOf(outputOf({}, ...pieces));
}

describe("OutputText", () => {
    it("keeps the order of the two streams, each in rows of its own", () => {
        const output = new OutputText();
        output.append(0, "a");
        output.append(0, "b");
        output.append(1, "c\n");
        output.append(0, "d");
        output.process();
        expect(rowsOf(output)).toEqual([
            { stream: 0, text: "ab", hasEnd: false },
            { stream: 1, text: "c", hasEnd: true },
            { stream: 0, text: "d", runs: undefined, hasEnd: false },
        ]);
        expect(textOf(output)).toBe("abc\nd");
    });

    it.each([
        [["10%\r20%\r"], "20%"],
        [["10%\r", "100%\ndone"], "100%\ndone"],
        [["long line\rab"], "abng line"],
        [["a\r\nb\r\n"], "a\nb\n"],
        [["a\r", "\nb"], "a\nb"],
        [["kept\n10%", "\r20%"], "kept\n20%"],
        [["\r\n\n"], "\n\n"],
        [["abc\b\bX"], "aXc"],
        [["\b\ba"], "a"],
        [["😀\bx"], "x"],
        [["a😀b\rxy"], "xyb"],
    ])("shows %j as %j", (pieces, shown) => {
        expect(written(...pieces)).toBe(shown);
    });

    it.each([
        ["a\u0000b\u0001", "a␀b␁"],
        ["bell\u0007", "bell"],
        ["\u007f\u0080\u009b1m", "␡��1m"],
        ["tab\tstays", "tab\tstays"],
        ["one\u2028line\u2029", "one␤line␤"],
        ["\u000b\u000c", "␋␌"],
    ])("shows control characters %j as %j", (text, shown) => {
        expect(written(text)).toBe(shown);
    });

    it.each(["👩‍👩‍👧 é \u0301 שלום مرحبا \u{1F1E9}\u{1F1EA}\n", "\ufeff\u202eabc\u202c\n", "lone \ud800 half\n"])(
        "leaves text of any script as it is: %j",
        (text) => {
            expect(written(text)).toBe(text);
        },
    );

    it.each([
        [[`${escape}[2J${escape}[1;1Hhome`], "home"],
        [[`${escape}]0;title\u0007text`], "text"],
        [[`${escape}]8;;http://x${escape}\\link${escape}]8;;${escape}\\`], "link"],
        [[`${escape}(Bplain`], "plain"],
        [[`50%${escape}[K\r${escape}[K75%`], "75%"],
        [[`abc\r${escape}[2Kx`], "x"],
        [[`abc\b${escape}[1Kx`], "  x"],
        [[escape, "[3", "1mred"], "red"],
        [[`cut ${escape}[3\nnext`], "cut ␛[3\nnext"],
        [[`${escape}[${"1;".repeat(200)}`], `␛[${"1;".repeat(200)}`],
    ])("takes escape sequences out of %j, which gives %j", (pieces, shown) => {
        expect(written(...pieces)).toBe(shown);
    });

    it("keeps colours as runs, each stream its own, beyond the end of a line", () => {
        const output = new OutputText();
        output.append(0, `plain${escape}[31mred\nstill`);
        output.append(1, "not\n");
        output.append(0, `red${escape}[0m!\n`);
        output.process();
        expect(rowsOf(output).map(({ runs }) => runs)).toEqual([
            [
                { text: "plain", style: undefined },
                { text: "red", style: { color: 1 } },
            ],
            [{ text: "still", style: { color: 1 } }],
            undefined,
            [
                { text: "red", style: { color: 1 } },
                { text: "!", style: undefined },
            ],
        ]);
    });

    it("gives what is written over its own style", () => {
        const [row] = rowsOf(outputOf({}, `abc\r${escape}[1mX${escape}[m`));
        expect(row?.runs).toEqual([
            { text: "X", style: { isBold: true } },
            { text: "bc", style: undefined },
        ]);
    });

    it.each([1, 2, 3, 7, 1000])("gives the same for text in pieces of %d", (length) => {
        const text = `one\r\n${escape}[32mgreen${escape}[0m\rover\n😀${"x".repeat(50)}\n\n10%\r20%\nend`;
        const pieces: string[] = [];
        for (let from = 0; from < text.length; from += length) {
            pieces.push(text.slice(from, from + length));
        }
        expect(rowsOf(outputOf({ rowUnits: 20 }, ...pieces))).toEqual(
            rowsOf(outputOf({ rowUnits: 20 }, text)),
        );
    });

    it("goes on in another row where a line is too long, between characters", () => {
        const output = outputOf({ rowUnits: 4 }, "abcd", "efg😀hi", "\u0301j\n");
        expect(rowsOf(output).map(({ text, hasEnd }) => [text, hasEnd])).toEqual([
            ["abcd", false],
            ["efg", false],
            ["😀hi", false],
            ["\u0301j", true],
        ]);
        expect(textOf(output)).toBe("abcdefg😀hi\u0301j\n");
        expect(rowsOf(outputOf({ rowUnits: 4 }, "abce\u0301f")).map(({ text }) => text)).toEqual([
            "abc",
            "e\u0301f",
        ]);
    });

    it("drops the oldest rows beyond its limit and counts them", () => {
        const output = outputOf({ units: 10 }, "abc\n", "defg\n", "hijkl");
        expect(textOf(output)).toBe("defg\nhijkl");
        expect(output.dropped).toBe(4);
        expect([output.firstRow, output.endRow, output.length]).toEqual([1, 3, 10]);
    });

    it("keeps no more rows than its limit", () => {
        const output = outputOf({ rows: 3 }, "1\n2\n3\n4\n5\n");
        expect(textOf(output)).toBe("3\n4\n5\n");
        expect(output.dropped).toBe(4);
    });

    it("keeps no more styles than its limits, and the text of a row that has too many", () => {
        const coloured = `${escape}[31ma${escape}[32mb${escape}[33mc${escape}[0m\n`;
        const output = outputOf({ runs: 6, rowRuns: 3 }, coloured.repeat(5));
        expect(rowsOf(output).map(({ runs }) => runs?.length)).toEqual([3, 3]);
        expect(output.dropped).toBe(12);
        expect(rowsOf(outputOf({ rowRuns: 2 }, coloured))).toEqual([
            { stream: 0, text: "abc", hasEnd: true },
        ]);
    });

    it("keeps the end of a single piece of text that is too long", () => {
        const output = outputOf({ units: 100 }, "x".repeat(1_000_000) + "end\n");
        expect(textOf(output)).toBe(`${"x".repeat(96)}end\n`);
        expect(output.dropped).toBe(1_000_004 - 100);
    });

    it("gives up no more of a long piece than it must, when more comes before it was made rows of", () => {
        const output = new OutputText({ units: 100 });
        output.append(0, "x".repeat(1000) + "end");
        output.append(0, "\n");
        output.process();
        expect(textOf(output)).toBe(`${"x".repeat(96)}end\n`);
        expect(output.dropped).toBe(904);
    });

    it("is bounded while nobody makes rows of what comes, and counts what it drops", () => {
        const output = new OutputText({ units: 1000 });
        for (let line = 0; line < 10_000; line++) {
            output.append(0, `${String(line)}\n`);
            expect(output.length).toBeLessThanOrEqual(1000);
        }
        output.process();
        expect(textOf(output).endsWith("9998\n9999\n")).toBe(true);
        expect(output.length + output.dropped).toBe(48_890);
    });

    it("does not begin with what is past its time, and goes on where it stopped", () => {
        const output = new OutputText();
        const lines = Array.from({ length: 10_000 }, (_, line) => `${String(line)}\n`).join("");
        output.append(0, lines);
        expect(output.process(0)).toBe(false);
        expect(output.endRow).toBeLessThan(100);
        while (!output.process(0)) {
            expect(output.length).toBe(lines.length);
        }
        expect(textOf(output)).toBe(lines);
    });

    it("gives up text when it is limited later", () => {
        const output = outputOf({}, "1\n2\n3\n4\n");
        output.limitTo(4);
        expect(textOf(output)).toBe("3\n4\n");
        output.append(0, "5\n");
        output.process();
        expect(textOf(output)).toBe("4\n5\n");
    });

    it("counts every unit as kept or dropped, whatever comes", () => {
        let seed = 7;
        const random = (bound: number) => (seed = (seed * 48271) % 0x7fffffff) % bound;
        const output = new OutputText({ units: 500, rows: 20, rowUnits: 30 });
        let total = 0;
        for (let step = 0; step < 3000; step++) {
            const text = `${"ab😀".repeat(random(12))}${random(3) === 0 ? "\n" : ""}`;
            output.append(random(4) === 0 ? 1 : 0, text);
            total += text.length;
            if (random(3) === 0) {
                output.process(0);
            }
            expect(output.length + output.dropped).toBe(total);
            expect(output.length).toBeLessThanOrEqual(500);
        }
    });
});
