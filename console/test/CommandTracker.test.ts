import { beforeEach, describe, expect, it } from "vitest";

import { CommandTracker, shortId, type Listing } from "../src/CommandTracker";

let tracker: CommandTracker<string>;

beforeEach(() => {
    tracker = new CommandTracker();
});

/** A listing in which the query itself has the number given last. */
function listing(running: number[], waiting: number[], query: number): Listing {
    const id = (number: number) => `77:${String(number)}`;
    return { running: [...running, query].map(id), waiting: waiting.map(id) };
}

describe("the tracker", () => {
    it("leaves out the query itself", () => {
        expect(tracker.read(listing([], [], 5))).toEqual({ running: [], waiting: [] });
    });

    it("finds the page's commands between the queries around them", () => {
        tracker.add("first");
        tracker.bound("first", "77:5", "77:9");
        tracker.add("second");
        tracker.bound("second", "77:11", "77:15");
        expect(tracker.read(listing([7], [13], 17))).toEqual({
            running: [{ id: "77:7", own: "first" }],
            waiting: [{ id: "77:13", own: "second" }],
        });
    });

    it("tells them from others' that came before, between and after", () => {
        tracker.add("first");
        tracker.bound("first", "77:5", "77:9");
        tracker.add("second");
        tracker.bound("second", "77:13", "77:17");
        tracker.read(listing([3], [11, 19], 21));
        expect(tracker.read(listing([3], [7, 11, 15, 19], 23))).toEqual({
            running: [{ id: "77:3", own: undefined }],
            waiting: [
                { id: "77:7", own: "first" },
                { id: "77:11", own: undefined },
                { id: "77:15", own: "second" },
                { id: "77:19", own: undefined },
            ],
        });
    });

    it("compares numbers, not texts", () => {
        tracker.add("mine");
        tracker.bound("mine", "77:99", "77:103");
        expect(tracker.read(listing([101], [], 105)).running).toEqual([{ id: "77:101", own: "mine" }]);
    });

    it("does not guess while another's command may be the page's", () => {
        tracker.add("mine");
        tracker.bound("mine", "77:5", "77:11");
        expect(tracker.read(listing([7, 9], [], 13)).running).toEqual([]);
        expect(tracker.read(listing([7, 9], [], 13)).running).toEqual([
            { id: "77:7", own: undefined },
            { id: "77:9", own: undefined },
        ]);
        // Now the other one has ended.
        expect(tracker.read(listing([9], [], 15)).running).toEqual([{ id: "77:9", own: "mine" }]);
    });

    it("leaves to the next query what came in behind this one", () => {
        expect(tracker.read(listing([], [9], 7)).waiting).toEqual([]);
    });

    it("forgets a command that has ended", () => {
        tracker.add("mine");
        tracker.bound("mine", "77:5", "77:9");
        expect(tracker.size).toBe(1);
        tracker.remove("mine");
        expect(tracker.size).toBe(0);
        tracker.bound("mine", "77:5", "77:9"); // told too late
        tracker.read(listing([7], [], 11));
        expect(tracker.read(listing([7], [], 11)).running).toEqual([{ id: "77:7", own: undefined }]);
    });

    it("shows what waits from elsewhere only when it waits for longer than a query", () => {
        expect(tracker.read(listing([3], [1], 5)).waiting).toEqual([]);
        expect(tracker.read(listing([3], [1], 7)).waiting).toEqual([{ id: "77:1", own: undefined }]);
    });

    it("shows what runs from elsewhere only when it runs for longer than a query", () => {
        expect(tracker.read(listing([3, 5], [], 7)).running).toEqual([]);
        expect(tracker.hasNews).toBe(true);
        expect(tracker.read(listing([3, 9], [], 11)).running).toEqual([{ id: "77:3", own: undefined }]);
        expect(tracker.hasNews).toBe(true);
        expect(tracker.read(listing([3], [], 13)).running).toEqual([{ id: "77:3", own: undefined }]);
        expect(tracker.hasNews).toBe(false);
    });

    it("shows identifiers that it does not understand, without an owner", () => {
        tracker.add("mine");
        tracker.bound("mine", "x", "y");
        tracker.read({ running: ["a", "z"], waiting: ["b"] });
        expect(tracker.read({ running: ["a", "z"], waiting: ["b"] })).toEqual({
            running: [{ id: "a", own: undefined }],
            waiting: [{ id: "b", own: undefined }],
        });
    });
});

describe("a short identifier", () => {
    it.each([
        ["1795226287743375:12", "#12"],
        ["0b5c7f3e-99aa", "0b5c7f3e"],
    ])("of %s is %s", (id, short) => {
        expect(shortId(id)).toBe(short);
    });
});
