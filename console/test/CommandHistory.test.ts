import { describe, expect, it } from "vitest";

import { CommandHistory } from "../src/CommandHistory";

describe("CommandHistory", () => {
    it("walks back to the oldest and forth to the draft", () => {
        const history = new CommandHistory();
        history.add("a");
        history.add("b");
        expect(history.previous("dra")).toBe("b");
        expect(history.previous("b")).toBe("a");
        expect(history.previous("a")).toBeUndefined();
        expect(history.next()).toBe("b");
        expect(history.next()).toBe("dra");
        expect(history.next()).toBeUndefined();
    });

    it("enters a repeated command once", () => {
        const history = new CommandHistory();
        history.add("a");
        history.add("a");
        expect(history.previous("")).toBe("a");
        expect(history.previous("a")).toBeUndefined();
    });

    it("keeps no more than its limit", () => {
        const history = new CommandHistory(2);
        for (const command of ["a", "b", "c"]) {
            history.add(command);
        }
        expect([history.previous(""), history.previous(""), history.previous("")]).toEqual([
            "c",
            "b",
            undefined,
        ]);
    });
});
