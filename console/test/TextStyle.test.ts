import { describe, expect, it } from "vitest";

import { selectStyle } from "../src/TextStyle";

describe("selectStyle", () => {
    it.each([
        ["31", { color: 1 }],
        ["1;4;91", { isBold: true, isUnderlined: true, color: 9 }],
        ["42;107", { background: 15 }],
        ["38;5;9", { color: 9 }],
        ["38;5;208", { color: "#ff8700" }],
        ["48;5;244", { background: "#808080" }],
        ["38;2;1;20;255", { color: "#0114ff" }],
        ["38;2;300;0;0", { color: undefined }],
        ["38;5", { color: undefined }],
        ["3;9;7;2", { isItalic: true, isStruck: true, isInverse: true, isDim: true }],
        ["", undefined],
        ["0", undefined],
        ["31;0", undefined],
        ["77;31", { color: 1 }],
        ["?25", undefined],
    ])("gives for %j %j", (parameters, style) => {
        expect(selectStyle(undefined, parameters)).toEqual(style);
    });

    it.each([
        ["22", { color: 1, isBold: false, isDim: false }],
        ["39", { color: undefined, isBold: true }],
        ["44", { color: 1, isBold: true, background: 4 }],
    ])("changes by %j only what it names", (parameters, style) => {
        expect(selectStyle({ color: 1, isBold: true }, parameters)).toEqual(style);
    });
});
