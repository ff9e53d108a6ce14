import type { StructuredOutput } from "yvm-client";

import { isNestedTooDeep } from "./nesting";

/** Media types of images that browsers show, the best first. */
const imageTypes = ["image/svg+xml", "image/png", "image/jpeg", "image/webp", "image/gif"];

/** HTML longer than this, some 100,000 cells of a table, would keep the page from answering for seconds. */
const maxHtml = 500_000;

/** Pixels of a page beyond which the size of an image is not believed. */
const maxExtent = 20_000;

/** The form of a displayed value that the page shows. */
export type Form =
    | {
          readonly kind: "image";
          readonly address: string;
          readonly alternative: string;
          /** In pixels of the page, where it is known. */
          readonly size: { readonly width: number; readonly height: number } | undefined;
      }
    | { readonly kind: "html"; readonly html: string }
    | { readonly kind: "text"; readonly text: string };

/** The best form that there is. */
export function formOf({ data, metadata }: StructuredOutput): Form {
    const text = asText(data["text/plain"]);
    for (const type of imageTypes) {
        const content = asText(data[type]);
        if (content) {
            return {
                kind: "image",
                // As an address of data, SVG is an image and nothing else, wherever it is opened.
                address:
                    type === "image/svg+xml"
                        ? `data:${type},${encodeURIComponent(content.replace(/\p{Surrogate}/gu, "\ufffd"))}`
                        : `data:${type};base64,${content}`,
                alternative: (text ?? "").replace(/^<(.*)>$/s, "$1").trim() || "Figure",
                size: sizeOf(metadata[type]),
            };
        }
    }
    const html = asText(data["text/html"]);
    if (html && html.length <= maxHtml && !isNestedTooDeep(html)) {
        return { kind: "html", html };
    }
    return { kind: "text", text: textOf(data) };
}

/** The text of a displayed value of which nothing else can be shown. */
export function textOf(data: StructuredOutput["data"]): string {
    return asText(data["text/plain"]) ?? otherTypes(data);
}

function otherTypes(data: StructuredOutput["data"]): string {
    return `A value of ${Object.keys(data).sort().join(", ") || "no media type"}, which is not shown here`;
}

function asText(value: unknown): string | undefined {
    return typeof value === "string" ? value : undefined;
}

function sizeOf(metadata: unknown): { width: number; height: number } | undefined {
    if (typeof metadata !== "object" || metadata === null) {
        return undefined;
    }
    const { width, height } = metadata as { width?: unknown; height?: unknown };
    return isExtent(width) && isExtent(height) ? { width, height } : undefined;
}

function isExtent(value: unknown): value is number {
    return typeof value === "number" && value >= 1 && value <= maxExtent;
}
