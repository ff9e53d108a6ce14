import { afterEach, beforeEach, describe, expect, it, vi } from "vitest";

import { VariablesMonitor } from "../src/VariablesMonitor";

let answer: (listing: string) => void;
let fail: (reason: Error) => void;
let queries: number;
let shown: string[];
let monitor: VariablesMonitor<string>;

beforeEach(() => {
    vi.useFakeTimers();
    queries = 0;
    shown = [];
    monitor = new VariablesMonitor(
        () => {
            queries += 1;
            return new Promise((resolve, reject) => {
                answer = resolve;
                fail = reject;
            });
        },
        (listing) => shown.push(listing),
    );
});

afterEach(() => {
    vi.useRealTimers();
});

async function pass(milliseconds: number): Promise<void> {
    await vi.advanceTimersByTimeAsync(milliseconds);
}

describe("the variables", () => {
    it("are asked for when somebody looks, and not before", async () => {
        monitor.isBusy = true;
        monitor.changed();
        await pass(10_000);
        expect(queries).toBe(0);
        monitor.isWanted = true;
        await pass(0);
        expect(queries).toBe(1);
        answer("a");
        await pass(0);
        expect(shown).toEqual(["a"]);
    });

    it("are asked for once after many changes, and not while nothing happens", async () => {
        monitor.isWanted = true;
        await pass(0);
        answer("a");
        await pass(0);
        for (let change = 0; change < 50; change++) {
            monitor.changed();
            await pass(1);
        }
        await pass(100);
        expect(queries).toBe(2);
        answer("b");
        await pass(60_000);
        expect(queries).toBe(2);
        expect(shown).toEqual(["a", "b"]);
    });

    it("are asked for again after a change that came behind an open query", async () => {
        monitor.isWanted = true;
        await pass(0);
        monitor.changed();
        await pass(1000);
        expect(queries).toBe(1);
        answer("old");
        await pass(100);
        expect(queries).toBe(2);
        answer("new");
        await pass(0);
        expect(shown).toEqual(["old", "new"]);
    });

    it("are asked for every second while a command runs", async () => {
        monitor.isWanted = true;
        await pass(0);
        answer("a");
        await pass(0);
        monitor.isBusy = true;
        for (let second = 0; second < 3; second++) {
            await pass(1000);
            answer("b");
            await pass(0);
        }
        expect(queries).toBe(4);
        monitor.isBusy = false;
        await pass(1000);
        answer("c");
        await pass(60_000);
        expect(queries).toBe(5);
    });

    it("stay as they were when a query fails, and no answer is shown that comes too late", async () => {
        monitor.isWanted = true;
        await pass(0);
        answer("a");
        await pass(0);
        monitor.changed();
        await pass(100);
        fail(new Error("interrupted"));
        await pass(0);
        expect(shown).toEqual(["a"]);
        monitor.changed();
        await pass(100);
        monitor.isWanted = false;
        answer("b");
        await pass(0);
        expect(shown).toEqual(["a"]);
    });
});
