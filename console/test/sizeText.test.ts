import { expect, it } from "vitest";

import { sizeText } from "../src/sizeText";

it.each([
    [{ shape: [3, 4], bytes: 96 }, "3×4"],
    [{ shape: [7], bytes: 96 }, "7"],
    [{ shape: [], bytes: 999 }, "999 B"],
    [{ shape: [], bytes: 1000 }, "1.0 kB"],
    [{ shape: [], bytes: 12_345_678 }, "12 MB"],
    [{ shape: [], bytes: 999_600 }, "1.0 MB"],
    [{ shape: [], bytes: 5e18 }, "5000000 TB"],
])("the size of %j reads %s", (variable, text) => {
    expect(sizeText(variable)).toBe(text);
});
