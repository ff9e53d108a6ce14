import { getEventListeners } from "node:events";

import { describe, expect, it } from "vitest";

import type { Client, ClientOutput, Connection, TextChunk } from "../src/node.js";
import { cutAndRestore } from "./cutAndRestore.js";
import { failure } from "./failure.js";
import type { FakeServer } from "./FakeServer.js";
import { roundTrip } from "./roundTrip.js";
import { setUpAttached } from "./setUpAttached.js";

const sinks = "/yvm/c1/yvmSinks";
const reverted = { outSinkTraits: null, errSinkTraits: null };

let server: FakeServer;
let yvm: Connection;
let client: Client;

setUpAttached((given) => {
    ({ server, yvm, client } = given);
    server.onPublish = (channel, data) => {
        server.answerAttach(channel, data);
        if (channel === `${sinks}/request`) {
            server.push(`${sinks}/response`, { requestID: data["requestID"] });
        }
    };
});

/** What was asked of the sink service so far, without the identifiers. */
function asked(): Record<string, unknown>[] {
    return server.published
        .filter(({ channel }) => channel === `${sinks}/request`)
        .map(({ data }) => Object.fromEntries(Object.entries(data).filter(([key]) => key !== "requestID")));
}

function text(stream: 0 | 1, words: string): void {
    server.push(`${sinks}/output`, { stream, text: words });
}

async function readAll(output: AsyncIterable<TextChunk>): Promise<string> {
    let all = "";
    for await (const chunk of output) {
        all += chunk.text;
    }
    return all;
}

describe("the client's text", () => {
    it("is asked for at once, without traits, and handed on in order with its streams", async () => {
        const output = client.output();
        await output.installed;
        expect(asked()).toEqual([{}]);
        text(0, "a");
        text(1, "b");
        text(0, "c");
        const seen: TextChunk[] = [];
        for await (const chunk of output) {
            seen.push(chunk);
            if (seen.length === 3) {
                break;
            }
        }
        expect(seen).toEqual([
            { stream: 0, text: "a" },
            { stream: 1, text: "b" },
            { stream: 0, text: "c" },
        ]);
    });

    it("is asked for before a command that is sent next", async () => {
        const output = client.output();
        const request = client.eval("print()", { output: "client" });
        await server.publishOn("/yvm/c1/eval/request");
        const channels = server.published.map(({ channel }) => channel);
        expect(channels.indexOf(`${sinks}/request`)).toBeLessThan(channels.indexOf("/yvm/c1/eval/request"));
        server.push("/yvm/c1/eval/response", { requestID: request.requestID });
        await request;
        await output.close();
    });

    it("carries the traits as they are given", async () => {
        const output = client.output({
            traits: { out: { supportsHotlinks: true }, err: { useEcho: false } },
        });
        await output.installed;
        expect(asked()).toEqual([
            { outSinkTraits: { supportsHotlinks: true }, errSinkTraits: { useEcho: false } },
        ]);
    });

    it("goes back to the engine when the loop is left, which waits for the answer", async () => {
        const output = client.output();
        text(0, "x");
        for await (const chunk of output) {
            expect(chunk.text).toBe("x");
            break;
        }
        expect(asked()).toEqual([{}, reverted]);
        text(0, "nobody's");
        expect(await output.next()).toEqual({ done: true, value: undefined });
    });

    it("is shared by its readers, and goes back after the last of them", async () => {
        const first = client.output();
        const second = client.output();
        await second.installed;
        text(0, "to both");
        expect((await first.next()).value).toEqual({ stream: 0, text: "to both" });
        await first.close();
        await first.close();
        text(1, "to one");
        expect((await second.next()).value).toEqual({ stream: 0, text: "to both" });
        expect((await second.next()).value).toEqual({ stream: 1, text: "to one" });
        expect(asked()).toEqual([{}]);
        await second.close();
        expect(asked()).toEqual([{}, reverted]);
    });

    it("is refused to a reader with other traits, and given to one with the same", async () => {
        const traits = { out: { useEcho: true, supportsMore: false } };
        const output = client.output({ traits });
        expect(() => client.output({ traits: { out: { useEcho: false } } })).toThrow(
            'is being read with the traits {"outSinkTraits":{"useEcho":true,"supportsMore":false}}',
        );
        const same = client.output({ traits: { out: { supportsMore: false, useEcho: true } } });
        await same.installed;
        expect(asked()).toHaveLength(1);
        await Promise.all([output.close(), same.close()]);
        const later = client.output({ traits: { out: { useEcho: false } } });
        await later.installed;
        expect(asked().at(-1)).toEqual({ outSinkTraits: { useEcho: false } });
    });

    it("waits for a reader that is slow, all of it", async () => {
        const output = client.output();
        await output.installed;
        for (let line = 0; line < 1000; line++) {
            text(0, `${line}\n`);
        }
        await roundTrip(server, client);
        await client.detach();
        expect(await readAll(output)).toBe(Array.from({ length: 1000 }, (_, line) => `${line}\n`).join(""));
    });

    it("answers reads that do not wait for one another, in their order", async () => {
        const output = client.output();
        const reads = [output.next(), output.next(), output.next()];
        await output.installed;
        text(0, "a");
        text(0, "b");
        await roundTrip(server, client);
        await output.close();
        expect((await Promise.all(reads)).map(({ value }) => value?.text)).toEqual(["a", "b", undefined]);
    });

    it("goes back before the client is detached, and the loop ends", async () => {
        const output = client.output();
        await output.installed;
        await client.detach();
        expect(await readAll(output)).toBe("");
        const channels = server.published.map(({ channel }) => channel).slice(-2);
        expect(channels).toEqual([`${sinks}/request`, "/yvm/detach/request"]);
        expect(asked()).toEqual([{}, reverted]);
    });

    it("ends without an error when this side disconnects", async () => {
        const output = client.output();
        await output.installed;
        text(0, "last");
        await roundTrip(server, client);
        await yvm.disconnect();
        expect(await readAll(output)).toBe("last");
    });
});

describe("a signal", () => {
    it("that is aborted ends the loop with AbortedError and gives the text back", async () => {
        const controller = new AbortController();
        const output = client.output({ signal: controller.signal });
        await output.installed;
        controller.abort("enough");
        await expect(readAll(output)).rejects.toMatchObject({ name: "AbortedError", cause: "enough" });
        await roundTrip(server, client);
        expect(asked()).toEqual([{}, reverted]);
    });

    it("that is aborted already sends nothing", async () => {
        const output = client.output({ signal: AbortSignal.abort() });
        await expect(output.installed).rejects.toMatchObject({ name: "AbortedError" });
        await expect(readAll(output)).rejects.toMatchObject({ name: "AbortedError" });
        await roundTrip(server, client);
        expect(asked()).toEqual([]);
    });

    it.each(["the loop is left", "the connection is lost"])("is not listened to after %s", async (end) => {
        const { signal } = new AbortController();
        const output = client.output({ signal });
        await output.installed;
        expect(getEventListeners(signal, "abort")).toHaveLength(1);
        if (end === "the loop is left") {
            await output.close();
        } else {
            await cutAndRestore(server, yvm);
        }
        expect(getEventListeners(signal, "abort")).toHaveLength(0);
    });
});

describe("what goes wrong", () => {
    const fails = async (output: ClientOutput, expected: Record<string, unknown>) => {
        await expect(output.installed).rejects.toMatchObject(expected);
        await expect(readAll(output)).rejects.toMatchObject(expected);
    };

    it("is told when the server refuses the request", async () => {
        server.refusals.set(`${sinks}/request`, "403::not yours");
        await fails(client.output(), { name: "RefusedError", code: 403 });
        server.refusals.clear();
        await client.output().installed;
        expect(asked()).toEqual([{}]);
    });

    it("is told when the module answers with an error", async () => {
        server.onPublish = (_channel, { requestID }) => {
            server.push(`${sinks}/response`, { requestID, error: failure({ message: "no engine" }) });
        };
        await fails(client.output(), { name: "YvmError", message: "no engine" });
    });

    it("is told when the error follows an ordinary answer", async () => {
        const output = client.output();
        await output.installed;
        const requestID = (await server.publishOn(`${sinks}/request`))["requestID"];
        server.push(`${sinks}/response`, { requestID, error: failure({ message: "no sinks" }) });
        await expect(readAll(output)).rejects.toMatchObject({ name: "YvmError", message: "no sinks" });
    });

    it("is told to whoever leaves, when the engine's own sinks can't be put back", async () => {
        const output = client.output();
        await output.installed;
        server.onPublish = (_channel, { requestID }) => {
            server.push(`${sinks}/response`, { requestID, error: failure({ message: "stuck" }) });
        };
        await expect(output.close()).rejects.toMatchObject({ name: "YvmError", message: "stuck" });
    });

    it("is told of a client that is detached", async () => {
        await client.detach();
        await expect(client.output().installed).rejects.toMatchObject({ name: "ClosedError" });
    });

    it("is text of a wrong form, which ends the connection", async () => {
        const output = client.output();
        await output.installed;
        server.push(`${sinks}/output`, { stream: 2, text: "x" });
        await expect(readAll(output)).rejects.toMatchObject({
            name: "ProtocolError",
            message: `${sinks}/output.stream should be 0 or 1, but is number`,
        });
    });
});

describe("a lost connection", () => {
    it("ends the loop with ConnectionError, behind the text that came", async () => {
        const output = client.output();
        await output.installed;
        text(0, "before");
        await roundTrip(server, client);
        await cutAndRestore(server, yvm);
        expect((await output.next()).value?.text).toBe("before");
        await expect(output.next()).rejects.toMatchObject({ name: "ConnectionError" });
    });

    it("is followed by a revert that cannot install, when nobody reads any more", async () => {
        const output = client.output();
        await output.installed;
        await cutAndRestore(server, yvm);
        await server.publishOn(`${sinks}/request`, 3);
        expect(asked()).toEqual([{}, {}, reverted]);
    });

    it("is followed by nothing when somebody reads again", async () => {
        const output = client.output();
        await output.installed;
        const again = new Promise<ClientOutput>((resolve) => {
            yvm.onStatus(({ state }) => {
                if (state === "connected") {
                    resolve(client.output());
                }
            });
        });
        await server.cutSockets();
        await (
            await again
        ).installed;
        await roundTrip(server, client);
        expect(asked()).toEqual([{}, {}]);
        text(0, "on");
        expect((await (await again).next()).value?.text).toBe("on");
    });

    it("with the session needs no revert", async () => {
        const output = client.output();
        await output.installed;
        await cutAndRestore(server, yvm, () => {
            server.forgetSessions();
        });
        await expect(readAll(output)).rejects.toMatchObject({ name: "ConnectionError" });
        await roundTrip(server, client);
        expect(asked()).toEqual([{}]);
    });

    it("does not hold up whoever leaves meanwhile", async () => {
        const output = client.output();
        await output.installed;
        server.muted.add(`${sinks}/request`);
        server.onPublish = () => undefined;
        const closed = output.close();
        await server.publishOn(`${sinks}/request`, 2);
        await server.cutSockets();
        await closed;
    });
});

describe("a request's text", () => {
    const respond = (requestID: string) => {
        server.push("/yvm/c1/eval/response", { requestID });
    };
    const print = (requestID: string, words: string) => {
        server.push("/yvm/c1/text/output", { requestID, stream: 0, text: words });
    };

    it.each([
        ["keep", { useNullOutSink: false, useNullErrSink: false }],
        ["stream", { useNullOutSink: false, useNullErrSink: false }],
        ["none", { useNullOutSink: true, useNullErrSink: true }],
        ["client", {}],
    ] as const)("goes where %j tells", async (output, runOptions) => {
        const request = client.eval("x", { output });
        expect((await server.publishOn("/yvm/c1/eval/request"))["runOptions"]).toEqual(runOptions);
        const call = client.feval("f", [], { output, runOptions: { useNullErrSink: true } });
        expect((await server.publishOn("/yvm/c1/feval/request"))["runOptions"]).toEqual({
            ...runOptions,
            useNullErrSink: true,
        });
        respond(request.requestID);
        server.push("/yvm/c1/feval/response", { requestID: call.requestID, result: [] });
        await Promise.all([request, call]);
    });

    it("is streamed whole to one loop, complete before the end, and not kept", async () => {
        const request = client.eval("x", { output: "stream" });
        await server.publishOn("/yvm/c1/eval/request");
        for (let line = 0; line < 100; line++) {
            print(request.requestID, `${line}\n`);
        }
        respond(request.requestID);
        expect((await request).text).toBe("");
        expect(await readAll(request.output)).toBe(
            Array.from({ length: 100 }, (_, line) => `${line}\n`).join(""),
        );
        expect(request.text).toBe("");
    });

    it("is let go when the loop is left, and the request goes on", async () => {
        const request = client.eval("x", { output: "stream" });
        await server.publishOn("/yvm/c1/eval/request");
        print(request.requestID, "a");
        for await (const chunk of request.output) {
            expect(chunk.text).toBe("a");
            break;
        }
        print(request.requestID, "b");
        respond(request.requestID);
        await request;
        expect(await readAll(request.output)).toBe("");
    });

    it("that is streamed ends with the failure", async () => {
        const request = client.eval("x", { output: "stream" });
        await server.publishOn("/yvm/c1/eval/request");
        print(request.requestID, "a");
        server.push("/yvm/c1/eval/response", { requestID: request.requestID, error: failure() });
        const seen: string[] = [];
        await expect(
            (async () => {
                for await (const chunk of request.output) {
                    seen.push(chunk.text);
                }
            })(),
        ).rejects.toMatchObject({ name: "YvmError" });
        expect(seen).toEqual(["a"]);
    });

    it("that comes after the end is told as late, with whose it is", async () => {
        const late: unknown[] = [];
        const listener = client.onLateText((message) => late.push(message));
        const request = client.eval("thread");
        await server.publishOn("/yvm/c1/eval/request");
        print(request.requestID, "during");
        respond(request.requestID);
        expect((await request).text).toBe("during");
        print(request.requestID, "after");
        await roundTrip(server, client);
        expect(late).toEqual([{ requestID: request.requestID, stream: 0, text: "after" }]);
        listener.dispose();
        print(request.requestID, "unheard");
        await roundTrip(server, client);
        expect(late).toHaveLength(1);
    });
});
