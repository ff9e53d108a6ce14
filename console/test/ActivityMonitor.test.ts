import { afterEach, beforeEach, describe, expect, it, vi } from "vitest";

import { ActivityMonitor, type Activity } from "../src/ActivityMonitor";
import type { Listing } from "../src/CommandTracker";

const idle: Listing = { running: ["7:1"], waiting: [] };
const busy: Listing = { running: ["7:1", "7:3"], waiting: [] };
/** What is not of the page is asked for once more before it is shown. */
const lookTwice = 300;

let answer: (listing: Listing) => void;
let fail: (reason: Error) => void;
let queries: number;
let marks: { resolve(id: string): void; reject(reason: Error): void }[];
let shown: Activity<string> | undefined;
let monitor: ActivityMonitor<string>;

beforeEach(() => {
    vi.useFakeTimers();
    queries = 0;
    marks = [];
    shown = undefined;
    monitor = new ActivityMonitor(
        {
            list: () => {
                queries += 1;
                return new Promise((resolve, reject) => {
                    answer = resolve;
                    fail = reject;
                });
            },
            mark: () => new Promise((resolve, reject) => marks.push({ resolve, reject })),
        },
        (activity) => (shown = activity),
    );
});

afterEach(() => {
    vi.useRealTimers();
});

async function pass(milliseconds: number): Promise<void> {
    await vi.advanceTimersByTimeAsync(milliseconds);
}

async function attachAndAnswer(listing: Listing): Promise<void> {
    monitor.isAttached = true;
    await pass(0);
    answer(listing);
    await pass(0);
}

/** Attaches to an engine that runs something from elsewhere, and waits until that is shown. */
async function attachAndSee(): Promise<void> {
    await attachAndAnswer(busy);
    await pass(lookTwice);
    answer(busy);
    await pass(0);
    expect(queries).toBe(2);
    queries = 0;
}

describe("the monitor", () => {
    it("asks as soon as it is attached, and not before", async () => {
        await pass(60_000);
        expect(queries).toBe(0);
        await attachAndAnswer(busy);
        expect(queries).toBe(1);
        expect(shown).toEqual({ running: [], waiting: [], answers: true }); // it may be a query
        await pass(lookTwice);
        expect(queries).toBe(2);
        answer(busy);
        await pass(0);
        expect(shown).toEqual({ running: [{ id: "7:1", own: undefined }], waiting: [], answers: true });
    });

    it("asks once a second while something runs", async () => {
        await attachAndSee();
        await pass(999);
        expect(queries).toBe(0);
        await pass(1);
        expect(queries).toBe(1);
    });

    it("asks less often while nothing runs", async () => {
        await attachAndAnswer(idle);
        await pass(4999);
        expect(queries).toBe(1);
        await pass(1);
        expect(queries).toBe(2);
    });

    it("does not ask for a command that ends soon, and does for one that lasts", async () => {
        await attachAndAnswer({ running: ["7:1"], waiting: [] });
        monitor.send("mine", () => undefined);
        await pass(299);
        expect(queries).toBe(1);
        await pass(1);
        expect(queries).toBe(2);
    });

    it("asks at once when a command of its own ends that was listed", async () => {
        await attachAndSee();
        monitor.ended("mine");
        await pass(0);
        expect(queries).toBe(1);
    });

    it("has one query open at a time, and says when it is not answered", async () => {
        monitor.isAttached = true;
        await pass(0);
        monitor.send("mine", () => undefined);
        await pass(999);
        expect(shown?.answers).toBe(true);
        await pass(1);
        expect(shown?.answers).toBe(false);
        await pass(60_000);
        expect(queries).toBe(1);
        answer(busy);
        marks.forEach((mark, index) => {
            mark.resolve(`7:${String(index + 5)}`);
        });
        await pass(0);
        expect(shown?.answers).toBe(true);
    });

    it("never asks while the page is hidden, and at once when it is seen again", async () => {
        await attachAndSee();
        monitor.isVisible = false;
        await pass(60_000);
        expect(queries).toBe(0);
        monitor.send("mine", () => undefined);
        await pass(60_000);
        expect(queries).toBe(0);
        monitor.isVisible = true;
        await pass(0);
        expect(queries).toBe(1);
    });

    it("shows nothing after a query that failed, and goes on", async () => {
        await attachAndSee();
        await pass(1000);
        fail(new Error("interrupted"));
        await pass(0);
        expect(shown).toEqual({ running: [], waiting: [], answers: true });
        await pass(5000);
        expect(queries).toBe(2);
    });

    it("stops asking, and shows nothing, when it is attached no more", async () => {
        await attachAndSee();
        monitor.isAttached = false;
        expect(shown).toEqual({ running: [], waiting: [], answers: true });
        await pass(60_000);
        expect(queries).toBe(0);
    });

    it("names a command of its own once the queries around it are answered", async () => {
        await attachAndAnswer(idle);
        expect(monitor.send("mine", () => `sent behind ${String(marks.length)} query`)).toBe(
            "sent behind 1 query",
        );
        await pass(300);
        answer({ running: ["7:5", "7:9"], waiting: [] });
        await pass(0);
        expect(shown?.running).toEqual([]); // which would have called it another's
        marks[0]?.resolve("7:3");
        marks[1]?.resolve("7:7");
        await pass(0);
        expect(shown?.running).toEqual([{ id: "7:5", own: "mine" }]);
    });

    it("names a command of its own that was sent while it asked", async () => {
        monitor.isAttached = true;
        await pass(0);
        monitor.send("mine", () => undefined);
        answer({ running: ["7:4", "7:6"], waiting: [] });
        await pass(0);
        expect(shown?.running).toEqual([]);
        marks[0]?.resolve("7:3");
        marks[1]?.resolve("7:5");
        await pass(0);
        expect(shown?.running).toEqual([{ id: "7:4", own: "mine" }]);
    });

    it("lists a command without its owner when a query beside it has failed", async () => {
        await attachAndAnswer(idle);
        monitor.send("mine", () => undefined);
        marks[0]?.resolve("7:3");
        marks[1]?.reject(new Error("interrupted"));
        await pass(300);
        answer({ running: ["7:5", "7:9"], waiting: [] });
        await pass(lookTwice);
        answer({ running: ["7:5", "7:11"], waiting: [] });
        await pass(0);
        expect(shown?.running).toEqual([{ id: "7:5", own: undefined }]);
    });
});
