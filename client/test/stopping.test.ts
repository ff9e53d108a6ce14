import { getEventListeners, setMaxListeners } from "node:events";

import { describe, expect, it } from "vitest";

import { AbortedError, connect, type Client, type Connection } from "../src/node.js";
import { cutAndRestore } from "./cutAndRestore.js";
import { failure } from "./failure.js";
import { FakeServer } from "./FakeServer.js";
import { roundTrip } from "./roundTrip.js";
import { setUpAttached } from "./setUpAttached.js";

let server: FakeServer;
let yvm: Connection;
let client: Client;

setUpAttached((given) => {
    ({ server, yvm, client } = given);
});

async function abortionOf(promise: PromiseLike<unknown>): Promise<AbortedError> {
    try {
        await promise;
    } catch (error) {
        if (error instanceof AbortedError) {
            return error;
        }
        throw error;
    }
    throw new Error("it did not reject");
}

function publishedOn(channel: string): number {
    return server.published.filter((publish) => publish.channel === channel).length;
}

describe("cancel", () => {
    it.each([
        ["CANCEL_BEFORE_RUNNING"],
        ["CANCEL_WHILE_RUNNING"],
        ["UNABLE_TO_CANCEL_ALREADY_DONE"],
        ["UNABLE_TO_CANCEL_OTHER"],
        ["unknown 7"],
    ])("resolves to the status %s as the engine tells it", async (cancelStatus) => {
        const cancelled = client.cancel("some", { interrupt: true });
        const { requestID, ...keys } = await server.publishOn("/yvm/c1/cancel/request");
        expect(keys).toEqual({ requestIDtoCancel: "some", interrupt: true });
        server.push("/yvm/c1/cancel/response", { requestID, cancelStatus });
        expect(await cancelled).toBe(cancelStatus);
    });

    it("of a request names that request, does not interrupt unless told so, and leaves it open", async () => {
        const request = client.eval("work");
        const cancelled = request.cancel();
        const { requestID, ...keys } = await server.publishOn("/yvm/c1/cancel/request");
        expect(keys).toEqual({ requestIDtoCancel: request.requestID, interrupt: false });
        server.push("/yvm/c1/cancel/response", { requestID, cancelStatus: "UNABLE_TO_CANCEL_OTHER" });
        expect(await cancelled).toBe("UNABLE_TO_CANCEL_OTHER");
        server.push("/yvm/c1/text/output", { requestID: request.requestID, stream: 0, text: "on" });
        server.push("/yvm/c1/eval/response", { requestID: request.requestID });
        expect((await request).text).toBe("on");
    });

    it("may be sent twice, and each is answered for itself", async () => {
        const request = client.eval("work");
        const first = request.cancel({ interrupt: true });
        const second = request.cancel({ interrupt: true });
        const { requestID: firstID } = await server.publishOn("/yvm/c1/cancel/request", 1);
        const { requestID: secondID } = await server.publishOn("/yvm/c1/cancel/request", 2);
        server.push("/yvm/c1/cancel/response", { requestID: secondID, cancelStatus: "CANCEL_WHILE_RUNNING" });
        expect(await second).toBe("CANCEL_WHILE_RUNNING");
        server.push("/yvm/c1/cancel/response", {
            requestID: firstID,
            cancelStatus: "UNABLE_TO_CANCEL_ALREADY_DONE",
        });
        expect(await first).toBe("UNABLE_TO_CANCEL_ALREADY_DONE");
        server.push("/yvm/c1/eval/response", {
            requestID: request.requestID,
            error: failure({ status: 3, identifier: "KeyboardInterrupt" }),
        });
        await expect(request.done).rejects.toMatchObject({ name: "YvmError", status: 3 });
    });

    it("rejects with what the engine says against it", async () => {
        const cancelled = client.cancel("some");
        const rejected = expect(cancelled).rejects.toMatchObject({ name: "YvmError", message: "no engine" });
        const { requestID } = await server.publishOn("/yvm/c1/cancel/request");
        server.push("/yvm/c1/cancel/response", { requestID, error: failure({ message: "no engine" }) });
        await rejected;
    });

    it("rejects when the answer has no status", async () => {
        const cancelled = client.cancel("some");
        const rejected = expect(cancelled).rejects.toMatchObject({ name: "ProtocolError" });
        const { requestID } = await server.publishOn("/yvm/c1/cancel/request");
        server.push("/yvm/c1/cancel/response", { requestID });
        await rejected;
    });

    it("that is never answered rejects when the client is detached", async () => {
        const cancelled = client.cancel("some");
        const rejected = expect(cancelled).rejects.toMatchObject({ name: "ClosedError" });
        await server.publishOn("/yvm/c1/cancel/request");
        await client.detach();
        await rejected;
        await expect(client.cancel("some")).rejects.toMatchObject({ name: "ClosedError" });
    });
});

describe("cancelGroup and interrupt", () => {
    it("resolve when the engine was asked", async () => {
        const group = client.cancelGroup("plots", { interrupt: true });
        const { requestID: groupID, ...groupKeys } = await server.publishOn("/yvm/c1/cancelGroup/request");
        expect(groupKeys).toEqual({ requestGroupNametoCancel: "plots", interrupt: true });
        server.push("/yvm/c1/cancelGroup/response", { requestID: groupID });
        await group;

        const interrupt = client.interrupt();
        const { requestID: interruptID, ...interruptKeys } =
            await server.publishOn("/yvm/c1/interrupt/request");
        expect(interruptKeys).toEqual({});
        server.push("/yvm/c1/interrupt/response", { requestID: interruptID });
        await interrupt;
    });

    it("reject with what the engine says against it", async () => {
        const group = expect(client.cancelGroup("plots")).rejects.toMatchObject({ message: "no group" });
        const { requestID: groupID } = await server.publishOn("/yvm/c1/cancelGroup/request");
        server.push("/yvm/c1/cancelGroup/response", {
            requestID: groupID,
            error: failure({ message: "no group" }),
        });
        await group;
        const interrupt = expect(client.interrupt()).rejects.toMatchObject({ message: "no engine" });
        const { requestID } = await server.publishOn("/yvm/c1/interrupt/request");
        server.push("/yvm/c1/interrupt/response", { requestID, error: failure({ message: "no engine" }) });
        await interrupt;
    });
});

describe("an aborted cancel, cancelGroup or interrupt", () => {
    const calls: [string, (signal: AbortSignal) => Promise<unknown>][] = [
        ["cancel", (signal) => client.cancel("some", { interrupt: true, signal })],
        ["cancelGroup", (signal) => client.cancelGroup("plots", { signal })],
        ["interrupt", (signal) => client.interrupt({ signal })],
    ];

    it.each(calls)("waits no longer, and ignores the answer: %s", async (name, call) => {
        const controller = new AbortController();
        const asked = call(controller.signal);
        const { requestID } = await server.publishOn(`/yvm/c1/${name}/request`);
        controller.abort("enough");
        expect(await abortionOf(asked)).toMatchObject({ cause: "enough", cancelStatus: undefined });
        server.push(`/yvm/c1/${name}/response`, { requestID });
        await roundTrip(server, client);
        expect(yvm.status.state).toBe("connected");
        expect(publishedOn("/yvm/c1/cancel/request")).toBe(name === "cancel" ? 1 : 0);
    });

    it.each(calls)("sends nothing if the signal was aborted before: %s", async (name, call) => {
        await abortionOf(call(AbortSignal.abort()));
        await roundTrip(server, client);
        expect(publishedOn(`/yvm/c1/${name}/request`)).toBe(0);
    });

    it("no longer listens once it is answered", async () => {
        const controller = new AbortController();
        const asked = client.interrupt({ signal: controller.signal });
        const { requestID } = await server.publishOn("/yvm/c1/interrupt/request");
        server.push("/yvm/c1/interrupt/response", { requestID });
        await asked;
        expect(getEventListeners(controller.signal, "abort")).toEqual([]);
    });
});

describe("an aborted eval or feval", () => {
    const calls = [
        ["eval", (signal: AbortSignal) => client.eval("work", { signal })],
        ["feval", (signal: AbortSignal) => client.feval("work", [1], { signal })],
    ] as const;

    it.each(calls)(
        "%s rejects at once with the reason, and is cancelled with interrupt",
        async (name, call) => {
            const controller = new AbortController();
            const request = call(controller.signal);
            await server.publishOn(`/yvm/c1/${name}/request`);
            const reason = new Error("the page was left");
            controller.abort(reason);
            const error = await abortionOf(request); // nothing has been answered
            expect(error).toMatchObject({
                name: "AbortedError",
                message: "The call was aborted",
                cause: reason,
            });
            expect(error.cause).toBe(reason);
            const { requestID, ...keys } = await server.publishOn("/yvm/c1/cancel/request");
            expect(keys).toEqual({ requestIDtoCancel: request.requestID, interrupt: true });
            server.push("/yvm/c1/cancel/response", { requestID, cancelStatus: "CANCEL_WHILE_RUNNING" });
            expect(await error.cancelStatus).toBe("CANCEL_WHILE_RUNNING");
        },
    );

    it.each(calls)("%s sends nothing if the signal was aborted before", async (name, call) => {
        const signal = AbortSignal.abort("too late");
        const error = await abortionOf(call(signal));
        expect(error.cause).toBe("too late");
        expect(error.cancelStatus).toBeUndefined();
        await roundTrip(server, client);
        expect(publishedOn("/yvm/c1/cancel/request")).toBe(0);
        expect(publishedOn(`/yvm/c1/${name}/request`)).toBe(name === "eval" ? 1 : 0); // the marker
        expect(getEventListeners(signal, "abort")).toEqual([]);
    });

    it("is sent before its cancel when aborted in the same turn", async () => {
        const controller = new AbortController();
        const request = client.eval("work", { signal: controller.signal });
        controller.abort();
        expect((await abortionOf(request)).cause).toMatchObject({ name: "AbortError" });
        await server.publishOn("/yvm/c1/cancel/request");
        const order = server.published.map(({ channel }) => channel).slice(-2);
        expect(order).toEqual(["/yvm/c1/eval/request", "/yvm/c1/cancel/request"]);
    });

    it("takes no more text, and ignores the answer that comes later", async () => {
        const controller = new AbortController();
        const seen: string[] = [];
        const request = client.eval("work", {
            signal: controller.signal,
            onText: ({ text }) => seen.push(text),
        });
        const { requestID } = request;
        await server.publishOn("/yvm/c1/eval/request");
        controller.abort();
        await abortionOf(request);
        server.push("/yvm/c1/text/output", { requestID, stream: 0, text: "late" });
        server.push("/yvm/c1/eval/response", { requestID });
        await roundTrip(server, client);
        expect(seen).toEqual([]);
        expect(yvm.status).toEqual({ state: "connected" });
    });

    it("ends the loop over its output", async () => {
        const controller = new AbortController();
        const request = client.eval("work", { signal: controller.signal });
        const { requestID } = request;
        await server.publishOn("/yvm/c1/eval/request");
        server.push("/yvm/c1/text/output", { requestID, stream: 0, text: "some" });
        const loop = async () => {
            for await (const { text } of request.output) {
                expect(text).toBe("some");
                controller.abort();
            }
        };
        await abortionOf(loop());
    });

    it("does not hang on a cancel that is never answered", async () => {
        const controller = new AbortController();
        const request = client.eval("work", { signal: controller.signal });
        controller.abort();
        const { cancelStatus } = await abortionOf(request);
        await server.publishOn("/yvm/c1/cancel/request");
        const rejected = expect(cancelStatus).rejects.toMatchObject({ name: "ClosedError" });
        await client.detach();
        await rejected;
    });

    it("is left alone by an abort after its end, and no longer listens", async () => {
        const controller = new AbortController();
        const { signal } = controller;
        const answered = client.eval("work", { signal });
        const failed = client.eval("work", { signal });
        expect(getEventListeners(signal, "abort")).toHaveLength(2);
        await server.publishOn("/yvm/c1/eval/request", 2);
        server.push("/yvm/c1/eval/response", { requestID: answered.requestID });
        server.push("/yvm/c1/eval/response", { requestID: failed.requestID, error: failure() });
        await answered;
        await expect(failed.done).rejects.toMatchObject({ identifier: "ZeroDivisionError" });
        expect(getEventListeners(signal, "abort")).toEqual([]);
        controller.abort();
        await roundTrip(server, client);
        expect(publishedOn("/yvm/c1/cancel/request")).toBe(0);
    });

    it.each([
        [
            "refused",
            () => Promise.resolve(server.refusals.set("/yvm/c1/eval/request", "413::too long")),
            "RefusedError",
        ],
        ["detached", () => client.detach(), "ClosedError"],
    ])("no longer listens when the request was %s", async (_how, spoil, name) => {
        await spoil();
        const { signal } = new AbortController();
        await expect(client.eval("work", { signal }).done).rejects.toMatchObject({ name });
        expect(getEventListeners(signal, "abort")).toEqual([]);
    });

    it("one signal stops many", async () => {
        const controller = new AbortController();
        setMaxListeners(0, controller.signal); // else Node.js warns
        const requests = Array.from({ length: 50 }, () => client.eval("work", { signal: controller.signal }));
        controller.abort();
        await Promise.all(requests.map(abortionOf));
        await server.publishOn("/yvm/c1/cancel/request", 50);
        const cancelled = server.published
            .filter(({ channel }) => channel === "/yvm/c1/cancel/request")
            .map(({ data }) => data["requestIDtoCancel"]);
        expect(cancelled).toEqual(requests.map(({ requestID }) => requestID));
    });
});

describe("an abort around a lost connection", () => {
    it("sends the cancel again over the restored link, when the link took the first with it", async () => {
        const controller = new AbortController();
        const request = client.eval("work", { signal: controller.signal });
        await server.publishOn("/yvm/c1/eval/request");
        await server.cutSockets();
        controller.abort(); // the loss is not known yet
        const { cancelStatus } = await abortionOf(request);
        const { requestID, requestIDtoCancel } = await server.publishOn("/yvm/c1/cancel/request");
        expect(requestIDtoCancel).toBe(request.requestID);
        server.push("/yvm/c1/cancel/response", { requestID, cancelStatus: "CANCEL_WHILE_RUNNING" });
        expect(await cancelStatus).toBe("CANCEL_WHILE_RUNNING");
    });

    it("sends nothing when the server has forgotten the session and so has stopped all", async () => {
        const controller = new AbortController();
        const request = client.eval("work", { signal: controller.signal });
        await server.publishOn("/yvm/c1/eval/request");
        server.muted.add("/yvm/c1/cancel/request");
        controller.abort();
        const { cancelStatus } = await abortionOf(request);
        await server.publishOn("/yvm/c1/cancel/request");
        const rejected = expect(cancelStatus).rejects.toMatchObject({ name: "ConnectionError" });
        const states = await cutAndRestore(server, yvm, () => {
            server.forgetSessions();
        });
        expect(states).toEqual(["lost", "connected"]);
        await rejected;
        await roundTrip(server, client);
        expect(publishedOn("/yvm/c1/cancel/request")).toBe(1);
    });

    it("does nothing to a request that the loss has ended", async () => {
        const controller = new AbortController();
        const request = client.eval("work", { signal: controller.signal });
        await server.publishOn("/yvm/c1/eval/request");
        const rejected = expect(request.done).rejects.toMatchObject({ name: "ConnectionError" });
        const restored = cutAndRestore(server, yvm);
        await rejected;
        controller.abort();
        expect(getEventListeners(controller.signal, "abort")).toEqual([]);
        expect(await restored).toEqual(["lost", "connected"]);
        await roundTrip(server, client);
        expect(publishedOn("/yvm/c1/cancel/request")).toBe(0);
    });
});

describe("an aborted attach", () => {
    it("rejects at once, and detaches the client that the engine takes later", async () => {
        server.onPublish = (channel, data) => {
            if (channel === "/yvm/detach/request") {
                server.answerAttach(channel, data);
            }
        };
        const controller = new AbortController();
        const attach = yvm.attach({ requestID: "c2", signal: controller.signal });
        await server.publishOn("/yvm/attach/request", 2);
        controller.abort("enough");
        expect((await abortionOf(attach)).cause).toBe("enough");
        server.push("/yvm/attach/response", {
            requestID: "c2",
            apiVersion: "r24a0",
            channelPrefix: "/yvm/c2",
        });
        expect((await server.publishOn("/yvm/detach/request"))["requestIDtoDetach"]).toBe("c2");
    });

    it("sends nothing if the signal was aborted before", async () => {
        const error = await abortionOf(yvm.attach({ requestID: "c2", signal: AbortSignal.abort() }));
        expect(error.cancelStatus).toBeUndefined();
        await roundTrip(server, client);
        expect(publishedOn("/yvm/attach/request")).toBe(1);
        await yvm.attach({ requestID: "c2" }); // the identifier is free
    });

    it("that has succeeded before is not touched, and no longer listens", async () => {
        const controller = new AbortController();
        const other = await yvm.attach({ requestID: "c2", signal: controller.signal });
        expect(getEventListeners(controller.signal, "abort")).toEqual([]);
        controller.abort();
        await roundTrip(server, client);
        expect(other.closed).toBeUndefined();
        expect(publishedOn("/yvm/detach/request")).toBe(0);
    });
});

describe("an aborted connect", () => {
    it("rejects while the server keeps silent", async () => {
        const silent = await FakeServer.start();
        silent.muted.add("/meta/handshake");
        const controller = new AbortController();
        const connecting = connect(silent.url, { token: "secret", signal: controller.signal });
        await silent.until(() => silent.handshakes > 0);
        controller.abort("enough");
        expect((await abortionOf(connecting)).cause).toBe("enough");
        await silent.stop();
    });

    it("sends nothing if the signal was aborted before", async () => {
        const before = server.handshakes;
        await abortionOf(connect(server.url, { token: "secret", signal: AbortSignal.abort() }));
        await roundTrip(server, client);
        expect(server.handshakes).toBe(before);
    });
});
