import { beforeEach, describe, expect, it } from "vitest";

import type { Client, Connection, EventSubscription } from "../src/node.js";
import { failure } from "./failure.js";
import type { FakeServer } from "./FakeServer.js";
import { roundTrip } from "./roundTrip.js";
import { setUpAttached } from "./setUpAttached.js";

const prefix = "/yvm/c1";
const progressName = "yvm::ProgressEvent";
const progress = {
    id: 1,
    label: "fit",
    done: 3,
    total: 10,
    rate: 2.5,
    remaining: null,
    finished: false,
};

let server: FakeServer;
let yvm: Connection;
let client: Client;

setUpAttached((given) => {
    ({ server, yvm, client } = given);
    server.onPublish = (channel, data) => {
        server.answerAttach(channel, data);
        for (const name of ["subscribeEvent", "disconnectEvent"]) {
            if (channel === `${prefix}/${name}/request`) {
                server.push(`${prefix}/${name}/response`, { requestID: data["requestID"] });
            }
        }
    };
});

function fire(requestID: unknown, eventData: unknown): void {
    server.push(`${prefix}/event/fireEvent`, { requestID, eventData });
}

/** The identifiers that were freed, once there are so many. */
async function freed(count: number): Promise<unknown[]> {
    const found = () =>
        server.published.filter(({ channel }) => channel === `${prefix}/disconnectEvent/request`);
    await server.until(() => found().length >= count);
    return found().map(({ data }) => data["requestIDtoDisconnect"]);
}

function untilConnected(): Promise<void> {
    return new Promise((resolve) => {
        const listener = yvm.onStatus(({ state }) => {
            if (state === "connected") {
                listener.dispose();
                resolve();
            }
        });
    });
}

describe("a subscription", () => {
    let events: EventSubscription<typeof progressName>;
    let identifier: unknown;

    beforeEach(async () => {
        events = client.events(progressName);
        const asked = await server.publishOn(`${prefix}/subscribeEvent/request`);
        expect(asked).toEqual({ requestID: asked["requestID"], eventName: progressName });
        identifier = asked["requestID"];
        await events.subscribed;
    });

    it("is read in order, and ended by leaving the loop", async () => {
        fire(identifier, progress);
        fire(identifier, { ...progress, done: null });
        fire(identifier, { ...progress, done: 4 });
        const seen = [];
        for await (const { done, remaining } of events) {
            seen.push([done, remaining]);
            if (done === 4) {
                break;
            }
        }
        expect(seen).toEqual([
            [3, null],
            [NaN, null],
            [4, null],
        ]);
        expect(await freed(1)).toEqual([identifier]);
        fire(identifier, progress);
        await roundTrip(server, client);
        expect(await events.next()).toEqual({ done: true, value: undefined });
        await events.close();
        expect(await freed(1)).toHaveLength(1);
    });

    it("keeps the newest of what a slow loop has not read, and counts the others", async () => {
        for (let done = 0; done < 1500; done++) {
            fire(identifier, { ...progress, done });
        }
        await roundTrip(server, client);
        expect(events.dropped).toBe(500);
        expect((await events.next()).value).toMatchObject({ done: 500 });
        fire(identifier, { ...progress, done: 1500 });
        await roundTrip(server, client);
        expect(events.dropped).toBe(500);
        await events.close();
    });

    it("goes on when the connection comes back within the session", async () => {
        const restored = untilConnected();
        await server.cutSockets();
        await restored;
        fire(identifier, progress);
        expect((await events.next()).value).toEqual(progress);
        await events.close();
        expect(await freed(1)).toEqual([identifier]);
    });

    it("that is left while the connection is lost is ended when it is back", async () => {
        const restored = untilConnected();
        server.onPublish = () => undefined; // the answer is lost with the connection
        const closed = events.close();
        await server.publishOn(`${prefix}/disconnectEvent/request`);
        await server.cutSockets();
        await restored;
        await closed;
        expect(await freed(2)).toEqual([identifier, identifier]);
    });

    it("says so when the server has forgotten the session", async () => {
        const restored = untilConnected();
        const told = expect(events.next()).rejects.toMatchObject({
            name: "ConnectionError",
            message: "The server no longer knows this session",
        });
        await server.cutSockets();
        server.forgetSessions();
        await told;
        await restored;
        const again = client.events(progressName);
        await again.subscribed;
        await events.close();
        await roundTrip(server, client);
        expect(server.published.filter(({ channel }) => channel.includes("disconnectEvent"))).toEqual([]);
    });

    it("ends quietly with the client", async () => {
        const next = events.next();
        await client.detach();
        expect(await next).toEqual({ done: true, value: undefined });
    });

    it("throws at an event that is not what its name promises, and ends", async () => {
        fire(identifier, { ...progress, done: "3" });
        await expect(events.next()).rejects.toMatchObject({
            name: "ProtocolError",
            message: "yvm::ProgressEvent.done should be a number, but is string",
        });
        expect(await freed(1)).toEqual([identifier]);
        expect(yvm.status.state).toBe("connected");
    });
});

describe("asking for events", () => {
    it("rejects with the server's words where nobody knows the event", async () => {
        server.onPublish = (channel, { requestID }) => {
            if (channel === `${prefix}/subscribeEvent/request`) {
                const error = failure({ message: "No converter for none::Such", status: 5 });
                server.push(`${prefix}/subscribeEvent/response`, { requestID, error });
            }
        };
        const events = client.events("none::Such");
        const refusal = { name: "YvmError", message: "No converter for none::Such", status: 5 };
        await expect(events.next()).rejects.toMatchObject(refusal);
        await expect(events.subscribed).rejects.toMatchObject(refusal);
        await events.close();
        await roundTripByHand();
        expect(server.published.filter(({ channel }) => channel.includes("disconnectEvent"))).toEqual([]);
    });

    it("misses no event that overtakes the answer", async () => {
        server.onPublish = (channel, { requestID }) => {
            if (channel === `${prefix}/subscribeEvent/request`) {
                fire(requestID, { anything: ["goes"] });
            }
        };
        const events = client.events("some::LaterEvent");
        expect((await events.next()).value).toEqual({ anything: ["goes"] });
    });

    it("is called off by a signal, before the answer and after it", async () => {
        const aborted = client.events(progressName, { signal: AbortSignal.abort("early") });
        await expect(aborted.next()).rejects.toMatchObject({ name: "AbortedError", cause: "early" });
        expect(server.published.some(({ channel }) => channel.includes("subscribeEvent"))).toBe(false);

        const controller = new AbortController();
        const events = client.events(progressName, { signal: controller.signal });
        controller.abort("late");
        await expect(events.subscribed).rejects.toMatchObject({ name: "AbortedError", cause: "late" });
        await expect(events.next()).rejects.toMatchObject({ name: "AbortedError", cause: "late" });
        const { requestID } = await server.publishOn(`${prefix}/subscribeEvent/request`);
        expect(await freed(1)).toEqual([requestID]);
    });

    async function roundTripByHand(): Promise<void> {
        const answered = client.interrupt();
        const { requestID } = await server.publishOn(`${prefix}/interrupt/request`);
        server.push(`${prefix}/interrupt/response`, { requestID });
        await answered;
    }
});

describe("the events of a run", () => {
    const names = ["ylutil::io::StructuredOutputEvent", "services::prompt::InputRequestEvent"] as const;
    const question = { id: "7", prompt: "name? ", password: false };

    /** The identifier that the latest run gave each name. */
    async function connections(count = 1): Promise<Record<string, string>> {
        const { runOptions } = await server.publishOn(`${prefix}/eval/request`, count);
        const { eventConnections } = runOptions as { eventConnections: Record<string, string> };
        return Object.fromEntries(Object.entries(eventConnections).map(([id, name]) => [name, id]));
    }

    it("come among its text, and their identifiers are freed at its end", async () => {
        const seen: string[] = [];
        const request = client.eval("plot()", {
            events: names,
            onEvent: (event) => {
                seen.push(
                    event.name === names[0] ? String(event.data.data["text/plain"]) : event.data.prompt,
                );
            },
            onText: ({ text }) => seen.push(text),
        });
        const { [names[0]]: output, [names[1]]: input } = await connections();
        const { requestID } = request;
        expect(new Set([output, input, requestID]).size).toBe(3);
        server.push(`${prefix}/text/output`, { requestID, stream: 0, text: "before" });
        fire(output, { data: { "text/plain": "figure" }, metadata: {} });
        server.push(`${prefix}/text/output`, { requestID, stream: 0, text: "after" });
        fire(input, question);
        server.push(`${prefix}/eval/response`, { requestID });
        await request;
        expect(seen).toEqual(["before", "figure", "after", "name? "]);
        expect(await freed(2)).toEqual([output, input]);
        fire(input, question);
        await roundTrip(server, client);
        expect(seen).toHaveLength(4);
    });

    it("are read by a loop, which ends with the run", async () => {
        const request = client.eval("input()", { events: names });
        const { [names[1]]: input } = await connections();
        fire(input, question);
        server.push(`${prefix}/eval/response`, { requestID: request.requestID });
        const seen = [];
        for await (const event of request.events) {
            seen.push(event);
        }
        expect(seen).toEqual([{ name: names[1], data: question }]);
        expect(request.droppedEvents).toBe(0);
    });

    it("have identifiers of their own in each run", async () => {
        const runs = [client.eval("a", { events: names }), client.eval("b", { events: names })];
        const identifiers = [...Object.values(await connections(1)), ...Object.values(await connections(2))];
        expect(new Set([...identifiers, ...runs.map(({ requestID }) => requestID)]).size).toBe(6);
        for (const { requestID } of runs) {
            server.push(`${prefix}/eval/response`, { requestID });
        }
        await Promise.all(runs);
    });

    it.each([
        ["failed", "YvmError"],
        ["was refused", "RefusedError"],
        ["was aborted", "AbortedError"],
        ["was given up by a callback", "Error"],
    ])("are freed when the run %s", async (how, name) => {
        const controller = new AbortController();
        if (how === "was refused") {
            server.refusals.set(`${prefix}/eval/request`, "413::too long");
        }
        const request = client.eval("1", {
            events: names,
            onEvent: () => {
                throw new Error("no");
            },
            signal: controller.signal,
        });
        if (how === "failed") {
            await connections();
            server.push(`${prefix}/eval/response`, { requestID: request.requestID, error: failure() });
        } else if (how === "was aborted") {
            controller.abort();
        } else if (how === "was given up by a callback") {
            fire((await connections())[names[1]], question);
        }
        await expect(request).rejects.toMatchObject({ name });
        expect(new Set(await freed(2)).size).toBe(2);
    });

    it("are freed when the connection is back that was lost during the run", async () => {
        const restored = untilConnected();
        const request = client.eval("1", { events: names });
        const ids = Object.values(await connections());
        await server.cutSockets();
        await expect(request).rejects.toMatchObject({ name: "ConnectionError" });
        await restored;
        expect(await freed(2)).toEqual(ids);
    });

    it("fail the run if they are not what their name promises", async () => {
        const request = client.eval("1", { events: names });
        fire((await connections())[names[1]], { prompt: "?" });
        await expect(request).rejects.toMatchObject({
            name: "ProtocolError",
            message: "services::prompt::InputRequestEvent.id should be a string, but is undefined",
        });
    });
});

describe("an answer", () => {
    it("is a call that the engine takes while it waits", async () => {
        const answered = client.answer("7", "Ada");
        const { requestID, ...asked } = await server.publishOn(`${prefix}/feval/request`);
        expect(asked).toMatchObject({
            function: "yvm.answer",
            rhsArgs: ['"7"', '"Ada"'],
            numOutputsExpected: 0,
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        });
        server.push(`${prefix}/feval/response`, { requestID, result: [] });
        await answered;
    });

    it("that comes too late rejects with what the engine says", async () => {
        const answered = client.answer("7", "Ada");
        const { requestID } = await server.publishOn(`${prefix}/feval/request`);
        server.push(`${prefix}/feval/response`, { requestID, error: failure({ message: "too late" }) });
        await expect(answered).rejects.toMatchObject({ name: "YvmError", message: "too late" });
    });
});
