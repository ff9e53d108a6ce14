import { describe, expect, it } from "vitest";

import { parseAddress } from "../src/common/address.js";

describe("parseAddress", () => {
    it.each([
        ["http://127.0.0.1:8888", "http://127.0.0.1:8888/bayeux", undefined],
        ["http://127.0.0.1:8888/", "http://127.0.0.1:8888/bayeux", undefined],
        ["http://127.0.0.1:8888/?token=abc", "http://127.0.0.1:8888/bayeux", "abc"],
        ["https://example.org/bayeux", "https://example.org/bayeux", undefined],
        ["https://example.org/bayeux/?token=a%20b#top", "https://example.org/bayeux", "a b"],
        ["https://example.org/lab/", "https://example.org/lab/bayeux", undefined],
        ["http://h/?a=1&token=t&b=2", "http://h/bayeux?a=1&b=2", "t"],
    ])("reads %s", (url, endpoint, token) => {
        expect(parseAddress(url)).toEqual({ endpoint, token });
    });

    it.each(["", "h:1", "ws://h:1/", "http://"])("refuses %j", (url) => {
        expect(() => parseAddress(url)).toThrow(TypeError);
    });
});
