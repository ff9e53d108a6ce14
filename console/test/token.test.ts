import { describe, expect, it } from "vitest";

import { takeToken, type TokenPlaces } from "../src/token";

function places(href: string) {
    const stored = new Map<string, string>();
    const shown: string[] = [];
    const browser: TokenPlaces = {
        location: { href },
        history: { replaceState: (_data, _unused, url) => shown.push(url) },
        sessionStorage: {
            getItem: (key) => stored.get(key) ?? null,
            setItem: (key, value) => stored.set(key, value),
        },
    };
    return { browser, stored, shown };
}

describe("takeToken", () => {
    it("takes the token out of the address and keeps it for the tab", () => {
        const { browser, stored, shown } = places("http://h:1/?a=1&token=t%20k#x");
        expect(takeToken(browser)).toBe("t k");
        expect(shown).toEqual(["http://h:1/?a=1#x"]);
        expect([...stored.values()]).toEqual(["t k"]);
    });

    it("returns the kept one, and leaves the address alone, when the address has none", () => {
        const { browser, stored, shown } = places("http://h:1/");
        expect(takeToken(browser)).toBeUndefined();
        stored.set("yvm-token", "kept");
        expect(takeToken(browser)).toBe("kept");
        expect(shown).toEqual([]);
    });
});
