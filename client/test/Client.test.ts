import { describe, expect, it } from "vitest";

import { ndarray, type Client, type Connection, type TextChunk } from "../src/node.js";
import { failure } from "./failure.js";
import type { FakeServer } from "./FakeServer.js";
import { rejection } from "./rejection.js";
import { setUpAttached } from "./setUpAttached.js";

let server: FakeServer;
let yvm: Connection;
let client: Client;

setUpAttached((given) => {
    ({ server, yvm, client } = given);
});

describe("eval", () => {
    it("publishes the command with its text connected to the request", async () => {
        const request = client.eval("1+1", { isUserEval: true, runOptions: { queueName: "q" } });
        expect(await server.publishOn("/yvm/c1/eval/request")).toEqual({
            requestID: request.requestID,
            command: "1+1",
            isUserEval: true,
            runOptions: { useNullOutSink: false, useNullErrSink: false, queueName: "q" },
        });
        server.push("/yvm/c1/eval/response", { requestID: request.requestID });
        await request;
    });

    it("resolves to the text of its own request, apart by stream", async () => {
        const request = client.eval("anything");
        const { requestID } = request;
        await server.publishOn("/yvm/c1/eval/request");
        server.push("/yvm/c1/text/output", { requestID, stream: 0, text: "a" });
        server.push("/yvm/c1/text/output", { requestID: "another", stream: 0, text: "not mine" });
        server.push("/yvm/c1/text/error", { requestID, stream: 1, text: "b" });
        server.push("/yvm/c1/text/output", { requestID, stream: 0, text: "c" });
        server.push("/yvm/c1/eval/response", { requestID });
        expect(await request).toEqual({ text: "abc", stdout: "ac", stderr: "b" });
    });

    it("hands each piece of text on as it arrives, before the response", async () => {
        const chunks: TextChunk[] = [];
        const request = client.eval("anything", { onText: (chunk) => chunks.push(chunk) });
        const { requestID } = request;
        await server.publishOn("/yvm/c1/eval/request");
        server.push("/yvm/c1/text/output", { requestID, stream: 0, text: "first" });
        for await (const chunk of request.output) {
            expect(chunk).toEqual({ stream: 0, text: "first" });
            expect(chunks).toEqual([chunk]);
            server.push("/yvm/c1/eval/response", { requestID });
        }
        await request;
    });

    it("keeps no text when told so", async () => {
        const seen: string[] = [];
        const request = client.eval("flood", { output: "stream", onText: ({ text }) => seen.push(text) });
        const { requestID } = request;
        await server.publishOn("/yvm/c1/eval/request");
        server.push("/yvm/c1/text/output", { requestID, stream: 0, text: "x" });
        server.push("/yvm/c1/eval/response", { requestID });
        expect((await request).text).toBe("");
        expect(seen).toEqual(["x"]);
    });

    it("rejects with all that the engine told about the failure", async () => {
        const request = client.eval("1/0");
        const { requestID } = request;
        await server.publishOn("/yvm/c1/eval/request");
        const error = failure({ causes: [failure({ identifier: "KeyError", message: "'k'" })] });
        server.push("/yvm/c1/eval/response", { requestID, error });
        const reason = await rejection(request);
        expect(reason).toMatchObject({
            name: "YvmError",
            message: "division by zero",
            identifier: "ZeroDivisionError",
            status: 1,
            stackFrames: [
                { fileName: "<command 1>", functionName: "<module>", lineNumber: 1, sourceLine: "1/0" },
            ],
            causes: [{ name: "YvmError", identifier: "KeyError", message: "'k'" }],
            cause: { identifier: "KeyError" },
            shutdown: false,
            arguments: [],
            exceptionJson: null,
        });
    });

    it("ends the loop over its output by throwing the failure", async () => {
        const request = client.eval("print('x'); 1/0");
        const { requestID } = request;
        await server.publishOn("/yvm/c1/eval/request");
        server.push("/yvm/c1/text/output", { requestID, stream: 0, text: "x\n" });
        server.push("/yvm/c1/eval/response", { requestID, error: failure() });
        const texts: string[] = [];
        const loop = async () => {
            for await (const { text } of request.output) {
                texts.push(text);
            }
        };
        expect(await rejection(loop())).toMatchObject({ identifier: "ZeroDivisionError" });
        expect(texts).toEqual(["x\n"]);
    });

    it("rejects with what onText throws", async () => {
        const request = client.eval("anything", {
            onText: () => {
                throw new RangeError("enough");
            },
        });
        const { requestID } = request;
        await server.publishOn("/yvm/c1/eval/request");
        server.push("/yvm/c1/text/output", { requestID, stream: 0, text: "x" });
        expect(await rejection(request)).toMatchObject({ name: "RangeError", message: "enough" });
    });

    it("rejects when the server does not take the message", async () => {
        server.refusals.set("/yvm/c1/eval/request", "413::message too long");
        expect(await rejection(client.eval("x"))).toMatchObject({
            name: "RefusedError",
            code: 413,
            reason: "message too long",
            message: "The server refused the publish on /yvm/c1/eval/request: 413::message too long",
        });
    });

    it("sends a command of more than eight kilobytes", async () => {
        const command = "x".repeat(100_000);
        const request = client.eval(command);
        expect((await server.publishOn("/yvm/c1/eval/request"))["command"]).toBe(command);
        server.push("/yvm/c1/eval/response", { requestID: request.requestID });
        await request;
    });
});

describe("a message that is too long", () => {
    it("rejects without being sent, and the connection lives on", async () => {
        await expect(client.eval("x".repeat(64 * 1024 * 1024)).done).rejects.toMatchObject({
            name: "ConnectionError",
            message: expect.stringMatching(
                /^The publish on \/yvm\/c1\/eval\/request could not be sent: /,
            ) as string,
        });
        expect(yvm.status).toEqual({ state: "connected" });
    });
});

describe("feval", () => {
    it("sends arguments as JSON text and decodes the results", async () => {
        const request = client.feval("f", [1, "two", ndarray([[1, 2]])], {
            numOutputs: 2,
            format: "alwaysYDALong",
        });
        const { requestID } = request;
        expect(await server.publishOn("/yvm/c1/feval/request")).toEqual({
            requestID,
            function: "f",
            numOutputsExpected: 2,
            rhsArgs: ["1", '"two"', '{"ywtype":"float64","ywsize":[1,2],"ywdata":[1,2]}'],
            ydaOutputFormat: "alwaysYDALong",
            runOptions: { useNullOutSink: false, useNullErrSink: false },
        });
        server.push("/yvm/c1/feval/response", {
            requestID,
            result: [4, { ywtype: "int8", ywsize: [2], ywdata: [1, -1] }],
        });
        expect(await request).toEqual([4, { kind: "int8", shape: [2], data: Int8Array.of(1, -1) }]);
    });

    it("rejects when a result is in no known form, and the connection lives on", async () => {
        const request = client.feval("f");
        const { requestID } = request;
        await server.publishOn("/yvm/c1/feval/request");
        server.push("/yvm/c1/feval/response", {
            requestID,
            result: [{ ywtype: "decimal", ywsize: [], ywdata: [] }],
        });
        expect(await rejection(request)).toMatchObject({ name: "ProtocolError" });
        expect(yvm.status).toEqual({ state: "connected" });
    });

    it("throws at once for an argument without counterpart", () => {
        expect(() => client.feval("f", [undefined as unknown as null])).toThrow(TypeError);
    });
});

describe("attach and detach", () => {
    it("subscribes to the response before it publishes the attach, and to the prefix afterwards", () => {
        expect(server.subscribed).toEqual(["/yvm/attach/response", "/yvm/detach/response", "/yvm/c1/**"]);
        expect(server.published[0]).toEqual({
            channel: "/yvm/attach/request",
            data: { requestID: "c1", yvmID: "user-yvm", supportedApiVersions: ["r24a0", "r22a0"] },
        });
        expect(client.apiVersion).toBe("r24a0");
        expect(client.channelPrefix).toBe("/yvm/c1");
    });

    it("makes identifiers that the server accepts, when given none", async () => {
        const other = await yvm.attach();
        expect(other.requestID).toMatch(/^[A-Za-z0-9_-]{1,64}$/);
        expect(other.requestID).not.toBe((await yvm.attach()).requestID);
    });

    it("rejects an attach that the module refuses", async () => {
        server.onPublish = (_channel, { requestID }) => {
            server.push("/yvm/attach/response", {
                requestID,
                error: failure({ status: 5, message: "x is not supported", identifier: "" }),
            });
        };
        expect(await rejection(yvm.attach())).toMatchObject({
            name: "YvmError",
            status: 5,
            message: "x is not supported",
        });
    });

    it("rejects an attach that the server refuses", async () => {
        server.refusals.set("/yvm/attach/request", "403::identifier in use");
        expect(await rejection(yvm.attach())).toMatchObject({ name: "RefusedError", code: 403 });
    });

    it("rejects what is open with ClosedError on detach, and what comes later", async () => {
        const request = client.eval("while True: pass");
        await server.publishOn("/yvm/c1/eval/request");
        const detached = client.detach();
        expect(await rejection(request)).toMatchObject({ name: "ClosedError" });
        await detached;
        expect((await server.publishOn("/yvm/detach/request"))["requestIDtoDetach"]).toBe("c1");
        expect(await rejection(client.eval("1"))).toMatchObject({ name: "ClosedError" });
        await client.detach(); // a second time is harmless
    });

    it("keeps two clients of a connection apart", async () => {
        const other = await yvm.attach({ requestID: "c2" });
        const mine = client.eval("a");
        const theirs = other.eval("b");
        expect(mine.requestID).toBe(theirs.requestID); // each counts for itself
        await server.publishOn("/yvm/c2/eval/request");
        server.push("/yvm/c2/text/output", { requestID: theirs.requestID, stream: 0, text: "theirs" });
        server.push("/yvm/c1/text/output", { requestID: mine.requestID, stream: 0, text: "mine" });
        server.push("/yvm/c1/eval/response", { requestID: mine.requestID });
        server.push("/yvm/c2/eval/response", { requestID: theirs.requestID });
        expect((await mine).text).toBe("mine");
        expect((await theirs).text).toBe("theirs");
    });
});
