import { describe, expect, it } from "vitest";

import { isNestedTooDeep } from "../src/nesting";

describe("HTML is nested too deep", () => {
    it.each(["<div>", "<B>", "<table>", '<a href="x">', "<div/>", "<ul><li>", "<my-element>", "<div></b>"])(
        "where more than 200 of %s are left open",
        (tag) => {
            expect(isNestedTooDeep(tag.repeat(200))).toBe(false);
            expect(isNestedTooDeep(tag.repeat(201))).toBe(true);
        },
    );

    it.each([
        "<tr><td>1<td>2",
        "<p>text<br>",
        "<li>item",
        "<b>x</b>",
        "<div><span class='a'>x</SPAN ></div>",
        "</div>",
        "1 < 2 <",
    ])("by nothing that ends, such as %s", (html) => {
        expect(isNestedTooDeep(html.repeat(1000))).toBe(false);
    });

    it("by no drawing, whose elements may end themselves", () => {
        expect(isNestedTooDeep(`<svg>${'<path d="M0 0"/>'.repeat(1000)}</svg>`)).toBe(false);
        expect(isNestedTooDeep(`<svg></svg>${"<path/>".repeat(1000)}`)).toBe(true);
    });
});
