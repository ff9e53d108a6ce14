import { afterEach, beforeEach, describe, expect, expectTypeOf, it } from "vitest";

import {
    AbortedError,
    ClosedError,
    connect,
    ndarray,
    ProtocolError,
    UnsupportedError,
    type ApiVersion,
    type Client,
    type Connection,
    type R22a0Client,
    type R22a0FevalOptions,
    type YdaInput,
    type YdaValue,
} from "../src/node.js";
import { FakeServer } from "./FakeServer.js";
import { roundTrip } from "./roundTrip.js";
import { rejection } from "./rejection.js";

let server: FakeServer;
let yvm: Connection;

beforeEach(async () => {
    server = await FakeServer.start();
    yvm = await connect(server.url, { token: "secret" });
});

afterEach(async () => {
    await yvm.disconnect();
    await server.stop();
});

async function attach(apiVersion: ApiVersion): Promise<Client> {
    server.apiVersion = apiVersion;
    return yvm.attach({ requestID: "c1" });
}

function publishedOn(channel: string): Record<string, unknown>[] {
    return server.published.filter((publish) => publish.channel === channel).map(({ data }) => data);
}

/** The data of the next request on a channel of the client, which is answered as given. */
async function answer(channel: string, fields: Record<string, unknown> = {}) {
    const before = publishedOn(`/yvm/c1${channel}/request`).length;
    const data = await server.publishOn(`/yvm/c1${channel}/request`, Math.max(before, 1));
    server.push(`/yvm/c1${channel}/response`, { requestID: data["requestID"], ...fields });
    return data;
}

describe("the version", () => {
    it("is the one that the server picks of those offered, by default of all, the newest first", async () => {
        const client = await attach("r22a0");
        expect(client.apiVersion).toBe("r22a0");
        expect(publishedOn("/yvm/attach/request")[0]?.["supportedApiVersions"]).toEqual(["r24a0", "r22a0"]);
    });

    it("is offered as the option says", async () => {
        server.apiVersion = "r22a0";
        const client: R22a0Client = await yvm.attach({ requestID: "c1", apiVersions: ["r22a0"] });
        expect(publishedOn("/yvm/attach/request")[0]?.["supportedApiVersions"]).toEqual(["r22a0"]);
        expect(client.apiVersion).toBe("r22a0");
        expectTypeOf(client).not.toHaveProperty("interrupt");
        expectTypeOf(client).not.toHaveProperty("cancelGroup");
        expectTypeOf<R22a0Client["cancel"]>().returns.resolves.toEqualTypeOf<undefined>();
        expectTypeOf(client.debugger).not.toHaveProperty("clearAllBreakpoints");
        expectTypeOf<R22a0FevalOptions>().not.toHaveProperty("format");
        expectTypeOf<Awaited<ReturnType<R22a0Client["feval"]>>>().toEqualTypeOf<YdaValue[]>();
        // Not called: each is a mistake that the compiler has to find.
        void (() => [
            // @ts-expect-error -- it is not told what became of the request
            client.eval("1").cancel(),
            // @ts-expect-error -- nor here
            client.feval("f").cancel({ interrupt: true }),
            // @ts-expect-error -- and not here
            client.debugger.evaluate("1").cancel(),
            // @ts-expect-error -- there is no way back to the engine's own sinks
            client.output(),
            // @ts-expect-error -- the version does not know the condition
            client.debugger.setBreakpoint({ type: "UNSUPPRESSED_OUTPUT" }),
            // @ts-expect-error -- neither here
            client.debugger.clearBreakpoint({ type: "UNSUPPRESSED_OUTPUT" }),
            client.debugger.setBreakpoint({ type: "ERROR", messageId: "ValueError" }),
            client.debugger.clearBreakpoint({ fileName: "a.py", location: { lineNumber: 1 } }),
            client.eval("1").cancel({ status: false }),
        ]);
    });

    it.each(["r25a0", "r24a0"])("must be one of those offered, which %s is not", async (apiVersion) => {
        server.apiVersion = apiVersion;
        const error = await rejection(yvm.attach({ requestID: "c1", apiVersions: ["r22a0"] }));
        expect(error).toBeInstanceOf(ProtocolError);
        expect(error.message).toContain("/yvm/attach/response.apiVersion");
    });

    it("stays when a client is attached again after the server forgot the session", async () => {
        await attach("r22a0");
        await server.cutSockets();
        server.forgetSessions();
        await server.publishOn("/yvm/attach/request", 2);
        expect(publishedOn("/yvm/attach/request")[1]?.["supportedApiVersions"]).toEqual(["r22a0"]);
    });
});

/** What goes over the wire, side by side. */
const forms = {
    r24a0: {
        channels: ["/text/output", "/text/error"],
        runOptions: {
            useNullOutSink: false,
            useNullErrSink: true,
            commandWindowRowSize: 10,
            commandWindowColSize: 20,
            outSinkTraits: { useEcho: true },
            errSinkTraits: { supportsMore: false, useDiary: true },
            groupNames: ["g"],
        },
        rhsArgs: [
            "1.5",
            '"[1]"',
            '{"ywtype":"int32","ywsize":[2],"ywdata":[1,-2]}',
            '{"ywtype":"int64","ywsize":[],"ywdata":[9007199254740991]}',
        ],
    },
    r22a0: {
        channels: ["/output", "/error"],
        runOptions: {
            useNullOutSink: false,
            useNullErrSink: true,
            commandWindowWidth: 10,
            commandWindowHeight: 20,
            outSinkTraits: { _useEcho: true },
            errSinkTraits: { _supportsMore: false, _useDiary: true },
            groupNames: ["g"],
        },
        rhsArgs: [
            1.5,
            "[1]",
            { ywtype: "int32", ywsize: [2], ywdata: [1, -2] },
            { ywtype: "int64", ywsize: [], ywdata: [9007199254740991] },
        ],
    },
} as const;

describe.each(["r24a0", "r22a0"] as const)("with %s", (apiVersion) => {
    const form = forms[apiVersion];
    let client: Client;

    beforeEach(async () => {
        client = await attach(apiVersion);
    });

    it("text comes with its request", async () => {
        const request = client.eval("print(1)");
        await server.publishOn("/yvm/c1/eval/request");
        const { requestID } = request;
        server.push(`/yvm/c1${form.channels[0]}`, { requestID, stream: 0, text: "out" });
        server.push(`/yvm/c1${form.channels[1]}`, { requestID, stream: 1, text: "err" });
        server.push("/yvm/c1/eval/response", { requestID });
        expect(await request).toEqual({ text: "outerr", stdout: "out", stderr: "err" });
    });

    it("run options are spelled as the version has them", async () => {
        const request = client.eval("1", {
            runOptions: {
                useNullErrSink: true,
                commandWindowRowSize: 10,
                commandWindowColSize: 20,
                outSinkTraits: { useEcho: true },
                errSinkTraits: { supportsMore: false, useDiary: true },
                groupNames: ["g"],
            },
        });
        expect((await answer("/eval"))["runOptions"]).toEqual(form.runOptions);
        await request;
    });

    it("arguments travel as the version has them", async () => {
        const request = client.feval("f", [
            1.5,
            "[1]",
            new Int32Array([1, -2]),
            BigInt(Number.MAX_SAFE_INTEGER),
        ]);
        const data = await answer("/feval", { result: [1, { ywtype: "int8", ywsize: [], ywdata: [2] }] });
        expect(data["rhsArgs"]).toEqual(form.rhsArgs);
        expect(await request).toEqual([1, 2]);
    });

    it("a cancel that asks for no status resolves to nothing", async () => {
        const request = client.eval("1");
        const cancelled = request.cancel({ interrupt: true, status: false });
        const again = client.cancel("other", { status: false });
        await server.publishOn("/yvm/c1/cancel/request", 2);
        for (const data of publishedOn("/yvm/c1/cancel/request")) {
            server.push("/yvm/c1/cancel/response", { requestID: data["requestID"] });
        }
        await expect(cancelled).resolves.toBeUndefined();
        await expect(again).resolves.toBeUndefined();
        expect(publishedOn("/yvm/c1/cancel/request")).toMatchObject([
            { requestIDtoCancel: request.requestID, interrupt: true },
            { requestIDtoCancel: "other", interrupt: false },
        ]);
        await answer("/eval");
        await request;
    });
});

describe("r22a0", () => {
    let client: Client;

    beforeEach(async () => {
        client = await attach("r22a0");
    });

    it.each<[string, string, () => Promise<unknown>]>([
        ["cancelGroup", "cancelGroup", () => client.cancelGroup("g")],
        ["interrupt", "interrupt", () => client.interrupt()],
        [
            "the status of a cancel",
            "status of cancelled requests: say status: false",
            () => client.cancel("1", { interrupt: true }),
        ],
        [
            "the status of a request's own cancel",
            "status of cancelled requests: say status: false",
            () => {
                const request = client.eval("1");
                request.done.catch(() => undefined);
                return request.cancel();
            },
        ],
        [
            "the revert of sinks",
            "way back to the engine's own sinks: say revert: false",
            () => client.output().installed,
        ],
        [
            "the revert of sinks, told by the loop",
            "way back to the engine's own sinks: say revert: false",
            () => client.output({ revert: true }).next(),
        ],
    ])("lacks %s, which rejects", async (_name, what, call) => {
        const error = await rejection(call());
        expect(error).toBeInstanceOf(UnsupportedError);
        expect(error).toMatchObject({ name: "UnsupportedError", apiVersion: "r22a0" });
        expect(error.message).toBe(`Version r22a0 of the protocol has no ${what}`);
    });

    it("is sent nothing that it lacks", async () => {
        await Promise.allSettled([
            client.cancelGroup("g"),
            client.interrupt(),
            client.cancel("1"),
            client.output().installed,
        ]);
        await roundTrip(server, client);
        const channels = server.published.map(({ channel }) => channel);
        expect(channels).toEqual(["/yvm/attach/request", "/yvm/c1/eval/request"]);
        expect(server.subscribed).not.toContain("/yvm/sinks/response");
    });

    it.each<[string, YdaInput]>([
        ["a bigint", 2n ** 53n],
        ["a negative one", -(2n ** 53n)],
        ["a typed array", new BigInt64Array([1n, 2n ** 60n])],
        ["an array with a shape", ndarray([[2n ** 63n]], [1, 1], "uint64")],
        ["a list in a record", { a: [null, "x", 2n ** 60n] }],
    ])("takes no integers beyond 2^53, here in %s", async (_name, value) => {
        expect(() => client.feval("f", [value])).toThrow(
            new UnsupportedError("r22a0", "integers beyond 2^53 in arguments"),
        );
        await roundTrip(server, client);
        expect(publishedOn("/yvm/c1/feval/request")).toEqual([]);
    });

    it.each<[string, YdaInput]>([
        ["a number", { ywtype: 5 }],
        ["null", { ywtype: null }],
        ["a record", { ywtype: { a: 1 } }],
        ["the name of integers", { ywtype: "uint16", ywdata: "x" }],
        ["the same in a list in a record", { a: [1, { ywtype: "int64" }] }],
    ])('takes no records with a member "ywtype" of %s', async (_name, value) => {
        expect(() => client.feval("f", [1, value])).toThrow(
            new UnsupportedError(
                "r22a0",
                'records in arguments with a member "ywtype" that is no text, or names integers',
            ),
        );
        await roundTrip(server, client);
        expect(publishedOn("/yvm/c1/feval/request")).toEqual([]);
    });

    it('takes records with a member "ywtype" of another text, and arrays of any kind', async () => {
        const request = client.feval("f", [{ ywtype: "int", a: new Int16Array([1]) }, ["ywtype"]]);
        const data = await answer("/feval", { result: [null] });
        expect(data["rhsArgs"]).toEqual([
            {
                ywtype: "record",
                ywsize: [],
                ywdata: { ywtype: "int", a: { ywtype: "int16", ywsize: [1], ywdata: [1] } },
            },
            { ywtype: "list", ywsize: [1], ywdata: ["ywtype"] },
        ]);
        await request;
    });

    it("cancels what is aborted, and does not tell what became of it", async () => {
        const controller = new AbortController();
        const request = client.eval("while True: pass", { signal: controller.signal });
        await server.publishOn("/yvm/c1/eval/request");
        controller.abort("enough");
        const error = await rejection(request);
        expect(error).toBeInstanceOf(AbortedError);
        expect((error as AbortedError).cancelStatus).toBeUndefined();
        expect(await server.publishOn("/yvm/c1/cancel/request")).toMatchObject({
            requestIDtoCancel: request.requestID,
            interrupt: true,
        });
    });
});

describe("the sinks that clients of r22a0 share", () => {
    let client: Client;

    beforeEach(async () => {
        client = await attach("r22a0");
    });

    function pushText(words: string): void {
        server.push("/yvm/sinks/response", { stream: 0, text: words });
    }

    it("are installed by the fixed channel, with the traits of the version, behind the subscription", async () => {
        let isHeard = false;
        server.onPublish = () => {
            isHeard = server.subscribed.at(-1) === "/yvm/sinks/response";
        };
        const output = client.output({ revert: false, traits: { err: { useDiary: true } } });
        await output.installed;
        expect(publishedOn("/yvm/sinks/set")).toEqual([{ errSinkTraits: { _useDiary: true } }]);
        expect(isHeard).toBe(true);
        pushText("a");
        server.push("/yvm/sinks/response", { stream: 1, text: "b" });
        expect(await output.next()).toEqual({ done: false, value: { stream: 0, text: "a" } });
        expect(await output.next()).toEqual({ done: false, value: { stream: 1, text: "b" } });
    });

    it("are asked for before a command that is sent next", async () => {
        const output = client.output({ revert: false });
        const request = client.eval("print()", { output: "client" });
        await answer("/eval");
        await request;
        const channels = server.published.map(({ channel }) => channel);
        expect(channels.indexOf("/yvm/sinks/set")).toBeLessThan(channels.indexOf("/yvm/c1/eval/request"));
        await output.close();
    });

    it("give all of the text to each client that reads", async () => {
        const other = await yvm.attach({ requestID: "c2" });
        const third = await yvm.attach({ requestID: "c3" });
        const outputs = [client.output({ revert: false }), other.output({ revert: false })];
        await Promise.all(outputs.map((output) => output.installed));
        expect(server.subscribed.filter((channel) => channel === "/yvm/sinks/response")).toHaveLength(1);
        pushText("all");
        for (const output of outputs) {
            expect(await output.next()).toEqual({ done: false, value: { stream: 0, text: "all" } });
        }
        expect(third.apiVersion).toBe("r22a0");
    });

    it("stay when the last reader leaves, and nobody listens any more", async () => {
        const other = await yvm.attach({ requestID: "c2" });
        const outputs = [client.output({ revert: false }), other.output({ revert: false })];
        await Promise.all(outputs.map((output) => output.installed));
        await outputs[0]?.close();
        await roundTrip(server, client);
        expect(server.unsubscribed).toEqual([]);
        await outputs[1]?.close();
        await server.until(() => server.unsubscribed.length > 0);
        expect(server.unsubscribed).toEqual(["/yvm/sinks/response"]);
        expect(publishedOn("/yvm/sinks/set")).toEqual([{}, {}]);
        const again = client.output({ revert: false });
        await again.installed;
        pushText("again");
        expect(await again.next()).toEqual({ done: false, value: { stream: 0, text: "again" } });
    });

    it("are left once when two readers leave at the same time", async () => {
        const other = await yvm.attach({ requestID: "c2" });
        const outputs = [client.output({ revert: false }), other.output({ revert: false })];
        await Promise.all(outputs.map((output) => output.installed));
        await Promise.all(outputs.map((output) => output.close()));
        await roundTrip(server, client);
        expect(server.unsubscribed).toEqual(["/yvm/sinks/response"]);
    });

    it("end with the client, without a word to the engine", async () => {
        const output = client.output({ revert: false });
        await output.installed;
        await client.detach();
        expect(await output.next()).toEqual({ done: true, value: undefined });
        expect(publishedOn("/yvm/sinks/set")).toEqual([{}]);
        expect(await rejection(client.output({ revert: false }).installed)).toBeInstanceOf(ClosedError);
    });

    it.each(["/yvm/sinks/set", "/yvm/sinks/response"])(
        "fail where the server refuses them on %s, and can be had later",
        async (channel) => {
            server.refusals.set(channel, "403::no such client");
            const output = client.output({ revert: false });
            expect((await rejection(output.installed)).name).toBe("RefusedError");
            expect((await rejection(output.next())).name).toBe("RefusedError");
            server.refusals.clear();
            const again = client.output({ revert: false });
            await again.installed;
            pushText("again");
            expect(await again.next()).toEqual({ done: false, value: { stream: 0, text: "again" } });
        },
    );

    it("end when the connection is lost, and can be had again", async () => {
        const output = client.output({ revert: false });
        await output.installed;
        await server.cutSockets();
        expect((await rejection(output.next())).name).toBe("ConnectionError");
        server.forgetSessions();
        await server.publishOn("/yvm/attach/request", 2);
        await server.until(
            () => server.subscribed.filter((channel) => channel === "/yvm/c1/**").length === 2,
        );
        const again = client.output({ revert: false });
        await again.installed;
        expect(publishedOn("/yvm/sinks/set")).toEqual([{}, {}]);
        pushText("again");
        expect(await again.next()).toEqual({ done: false, value: { stream: 0, text: "again" } });
    });
});

describe("with r24a0, sinks that are not to be reverted", () => {
    it("stay, unless one of their readers asks for the revert", async () => {
        const client = await attach("r24a0");
        const sinks = "/yvm/c1/yvmSinks";
        server.onPublish = (channel, data) => {
            server.answerAttach(channel, data);
            if (channel === `${sinks}/request`) {
                server.push(`${sinks}/response`, { requestID: data["requestID"] });
            }
        };
        await client.output({ revert: false }).close();
        await roundTrip(server, client);
        expect(publishedOn(`${sinks}/request`)).toHaveLength(1);
        const [first, second] = [client.output(), client.output({ revert: false })];
        await first.close();
        await second.close();
        expect(publishedOn(`${sinks}/request`)[2]).toMatchObject({
            outSinkTraits: null,
            errSinkTraits: null,
        });
    });
});
