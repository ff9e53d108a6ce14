import { describe, expect, it } from "vitest";

import { formOf } from "../src/displayForm";

const png = "iVBORw0KGgo=";

describe("the form of a displayed value", () => {
    it("is its image, in the size that it is told, with its text for those who do not see it", () => {
        expect(
            formOf({
                data: {
                    "text/plain": "<Figure size 640x480 with 1 Axes>",
                    "image/png": png,
                    "text/html": "<b>x</b>",
                },
                metadata: { "image/png": { width: 640, height: 480 } },
            }),
        ).toEqual({
            kind: "image",
            address: `data:image/png;base64,${png}`,
            alternative: "Figure size 640x480 with 1 Axes",
            size: { width: 640, height: 480 },
        });
    });

    it("is the drawing rather than its picture, as an address that is no page", () => {
        const svg = '<svg xmlns="http://www.w3.org/2000/svg"><text>50 % #1 \ud800</text></svg>';
        const form = formOf({ data: { "image/png": png, "image/svg+xml": svg }, metadata: {} });
        expect(form).toMatchObject({ kind: "image", alternative: "Figure", size: undefined });
        const address = form.kind === "image" ? form.address : "";
        expect(address).toMatch(/^data:image\/svg\+xml,/);
        expect(decodeURIComponent(address.slice(address.indexOf(",") + 1))).toBe(
            svg.replace("\ud800", "\ufffd"),
        );
    });

    it.each([
        [{ width: 640 }],
        [{ width: "640", height: 480 }],
        [{ width: 0, height: 480 }],
        [{ width: 1e9, height: 1 }],
        [null],
    ])("has no size where the metadata are %j", (metadata) => {
        expect(formOf({ data: { "image/png": png }, metadata: { "image/png": metadata } })).toMatchObject({
            size: undefined,
        });
    });

    it("is its HTML where there is no image, unless it is too much", () => {
        const text = "a table";
        expect(formOf({ data: { "text/plain": text, "text/html": "<table>" }, metadata: {} })).toEqual({
            kind: "html",
            html: "<table>",
        });
        const most = "x".repeat(500_000);
        expect(formOf({ data: { "text/plain": text, "text/html": most }, metadata: {} }).kind).toBe("html");
        for (const html of [`${most}x`, "<b>".repeat(500)]) {
            expect(formOf({ data: { "text/plain": text, "text/html": html }, metadata: {} })).toEqual({
                kind: "text",
                text,
            });
        }
    });

    it("is its text where there is nothing better, or tells what there is", () => {
        const json = { "application/json": { a: 1 } };
        expect(formOf({ data: { ...json, "text/plain": "{'a': 1}" }, metadata: {} })).toEqual({
            kind: "text",
            text: "{'a': 1}",
        });
        expect(formOf({ data: json, metadata: {} })).toEqual({
            kind: "text",
            text: "A value of application/json, which is not shown here",
        });
    });
});
