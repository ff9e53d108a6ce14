import { afterAll, afterEach, beforeAll, beforeEach, describe, expect, it } from "vitest";

import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** What any Bayeux client can do, by the stock one and by hand. */

let server: ServerProcess;
let client: StockClient;

beforeAll(async () => {
    server = await ServerProcess.start();
});

afterAll(async () => {
    expect((await server.stop()).code).toBe(0);
});

describe("attach", () => {
    beforeEach(async () => {
        client = new StockClient(server);
        expect((await client.handshake(server.token)).successful).toBe(true);
        await client.subscribe("/yvm/attach/response");
        await client.subscribe("/yvm/detach/response");
    });

    afterEach(async () => {
        await client.disconnect();
    });

    const request = { requestID: "a1", yvmID: "user-yvm", supportedApiVersions: ["r24a0"] };

    it("answers with the version and the prefix", async () => {
        expect(await client.attach(request)).toEqual({
            requestID: "a1",
            apiVersion: "r24a0",
            channelPrefix: "/yvm/a1",
        });
    });

    it("picks the newest of several versions", async () => {
        const response = await client.attach({
            ...request,
            supportedApiVersions: ["r22a0", "x", "r24a0"],
        });
        expect(response["apiVersion"]).toBe("r24a0");
    });

    it("refuses an unknown engine", async () => {
        const { error, ...rest } = await client.attach({ ...request, yvmID: "user-yvm " });
        expect(rest).toEqual({ requestID: "a1" });
        expect(error).toMatchObject({ status: 5, message: "user-yvm  is not supported" });
    });

    it("names a missing key and the message that lacks it", async () => {
        const { error } = await client.attach({ requestID: "a1", supportedApiVersions: ["r24a0"] });
        expect(error).toMatchObject({
            status: 2,
            message:
                'key: yvmID is missing from {\n  "requestID": "a1",\n  "supportedApiVersions": [\n    "r24a0"\n  ]\n}',
        });
    });

    it("names both lists when there is no common version", async () => {
        const { error } = await client.attach({ ...request, supportedApiVersions: ["x", "y"] });
        expect(error).toMatchObject({
            status: 2,
            message:
                "None of the requested API versions are supported: x, y\nSupported API versions include: r22a0, r24a0",
        });
    });

    it("is refused when the identifier belongs to another session", async () => {
        const owner = await StockClient.attached(server, "taken");
        const reply = await client.publish("/yvm/attach/request", { ...request, requestID: "taken" });
        expect(reply.successful).toBe(false);
        expect(reply.error).toMatch(/^403::/);
        await owner.disconnect();
    });

    it("gives nobody a look at another's channels", async () => {
        const owner = await StockClient.attached(server, "private");
        for (const channel of ["/yvm/private/**", "/yvm/**", "/yvm/*", "/yvm/private/eval/request"]) {
            expect((await client.subscribe(channel)).successful).toBe(false);
        }
        expect((await client.publish("/yvm/private/eval/request", { requestID: "x" })).successful).toBe(
            false,
        );
        await owner.disconnect();
    });
});

describe("detach", () => {
    it("answers, and leaves nothing to publish to", async () => {
        client = await StockClient.attached(server, "d1");
        expect(await client.request("/yvm/detach", { requestID: "bye", requestIDtoDetach: "d1" })).toEqual({
            requestID: "bye",
        });
        const reply = await client.publish("/yvm/d1/eval/request", { requestID: "1", command: "1" });
        expect(reply.successful).toBe(false);
        await client.disconnect();
    });

    it("answers success for an unknown identifier", async () => {
        client = await StockClient.attached(server, "d2");
        expect(
            await client.request("/yvm/detach", { requestID: "bye", requestIDtoDetach: "nobody" }),
        ).toEqual({ requestID: "bye" });
        await client.disconnect();
    });

    it("frees the identifier when the session ends", async () => {
        client = await StockClient.attached(server, "d3");
        await client.disconnect();
        // The identifier is free once the server's own detach has been answered.
        const next = new StockClient(server);
        await next.handshake(server.token);
        await next.subscribe("/yvm/attach/response");
        const data = { requestID: "d3", yvmID: "user-yvm", supportedApiVersions: ["r24a0"] };
        let reply = await next.publish("/yvm/attach/request", data);
        while (reply.successful !== true) {
            reply = await next.publish("/yvm/attach/request", data);
        }
        await next.event(({ data: { requestID } }) => requestID === "d3");
        await next.disconnect();
    });
});

describe("an attached client", () => {
    beforeAll(async () => {
        client = await StockClient.attached(server, "c");
    });

    afterAll(async () => {
        await client.disconnect();
    });

    it("reads 2 for 1+1, before the response", async () => {
        const { response, texts } = await client.eval("c", "1+1");
        expect(Object.keys(response)).toEqual(["requestID"]);
        expect(texts).toEqual([{ requestID: response["requestID"], stream: 0, text: "2\n" }]);
    });

    it("reads no value behind a semicolon", async () => {
        expect((await client.eval("c", "1+1;")).texts).toEqual([]);
    });

    it("reads what a command prints, on the stream it was printed to", async () => {
        const command = "import sys; print('to out'); print('to err', file=sys.stderr)";
        expect(await client.print("c", command, 0)).toBe("to out\n");
        expect(await client.print("c", command, 1)).toBe("to err\n");
    });

    it("reads text of all planes, whole", async () => {
        const text = "grüße \u{1f600} 日本 \u0000 \u2028";
        expect(await client.print("c", `print(${JSON.stringify(text)})`)).toBe(`${text}\n`);
        expect(await client.print("c", "print('\\U0001f600' * 200_000)")).toBe(
            `${"\u{1f600}".repeat(200_000)}\n`,
        );
    });

    it("keeps one workspace between commands", async () => {
        await client.eval("c", "kept = 41");
        expect(await client.print("c", "kept + 1")).toBe("42\n");
    });

    it("discards text of streams that are turned off", async () => {
        const runOptions = { useNullOutSink: true, useNullErrSink: true };
        const { response, texts } = await client.eval("c", "print('nothing')", { runOptions });
        expect(Object.keys(response)).toEqual(["requestID"]);
        expect(texts).toEqual([]);
    });

    it("gets every field of an error, and no text of it", async () => {
        const { response, texts } = await client.eval("c", "def f():\n    return 1/0\n\nf()");
        const error = response["error"] as Data;
        expect(Object.keys(error).sort()).toEqual([
            "arguments",
            "causes",
            "exceptionJson",
            "functionName",
            "identifier",
            "message",
            "shutdown",
            "stackFrames",
            "status",
        ]);
        expect(error).toMatchObject({
            status: 1,
            identifier: "ZeroDivisionError",
            message: "division by zero",
            functionName: "f",
            causes: [],
            shutdown: false,
        });
        expect(error["stackFrames"]).toMatchObject([
            { functionName: "<module>", lineNumber: 4, sourceLine: "f()" },
            { functionName: "f", lineNumber: 2, sourceLine: "return 1/0" },
        ]);
        expect(texts).toEqual([]);
    });

    it("gets the causes of an error", async () => {
        const { response } = await client.eval(
            "c",
            "try:\n    {}['k']\nexcept KeyError as e:\n    raise ValueError('bad') from e",
        );
        expect(response["error"]).toMatchObject({
            identifier: "ValueError",
            message: "bad",
            causes: [{ identifier: "KeyError", message: "'k'" }],
        });
    });

    it("gets a syntax error with its line", async () => {
        const { response } = await client.eval("c", "x = 1\ny = = 2");
        expect(response["error"]).toMatchObject({ identifier: "SyntaxError" });
        const frames = (response["error"] as { stackFrames: Data[] }).stackFrames;
        expect(frames.at(-1)).toMatchObject({ lineNumber: 2, sourceLine: "y = = 2" });
    });

    it("names a missing key of a request", async () => {
        const response = await client.request("/yvm/c/eval", { requestID: "no-command", isUserEval: true });
        expect(response).toMatchObject({
            requestID: "no-command",
            error: {
                status: 2,
                message:
                    'key: command is missing from {\n  "isUserEval": true,\n  "requestID": "no-command"\n}',
            },
        });
    });

    it("decomposes a matrix by numpy.linalg.svd", async () => {
        const { result, error } = await client.feval(
            "c",
            "numpy.linalg.svd",
            ['{"ywtype":"float64","ywsize":[2,2],"ywdata":[3,0,4,5]}'],
            { numOutputsExpected: 3 },
        );
        expect(error).toBeUndefined();
        const [u, s, vt] = result as [{ ywdata: number[] }, number[], { ywdata: number[] }];
        expect(u).toMatchObject({ ywtype: "float64", ywsize: [2, 2] });
        expect(s[0]).toBeCloseTo(Math.sqrt(45), 12);
        expect(s[1]).toBeCloseTo(Math.sqrt(5), 12);
        const product = [0, 1, 2, 3].map((place) => {
            const [row, column] = [place >> 1, place & 1];
            return [0, 1].reduce(
                (sum, k) =>
                    sum + (u.ywdata[2 * row + k] ?? NaN) * (s[k] ?? NaN) * (vt.ywdata[2 * k + column] ?? NaN),
                0,
            );
        });
        [3, 0, 4, 5].forEach((value, place) => {
            expect(product[place]).toBeCloseTo(value, 12);
        });
    });

    it("gets an empty result when it asks for no outputs", async () => {
        const { result } = await client.feval("c", "abs", ["-1"], { numOutputsExpected: 0 });
        expect(result).toEqual([]);
    });

    it("gets the long form when it asks for it", async () => {
        const { result } = await client.feval("c", "abs", ["-1.5"], { ydaOutputFormat: "alwaysYDALong" });
        expect(result).toEqual([{ ywtype: "float64", ywsize: [], ywdata: [1.5] }]);
    });

    it("learns what is wrong with a call", async () => {
        expect(await client.feval("c", "abs", [], { ydaOutputFormat: "short" })).toMatchObject({
            error: { status: 2, message: "Invalid YDA output format" },
        });
        expect(await client.feval("c", "no.such.function", [])).toHaveProperty("error.identifier");
        const { error } = await client.feval("c", "abs", ["{"]);
        expect(error).toMatchObject({ status: 2 });
    });

    it("finds in the history what a person typed, and nothing else", async () => {
        await client.eval("c", "typed = 1", { isUserEval: true });
        await client.eval("c", "not_typed = 1");
        const { result } = await client.feval("c", "yvm.history", []);
        const [{ ywdata: commands }] = result as [{ ywdata: string[] }];
        expect(commands).toContain("typed = 1");
        expect(commands).not.toContain("not_typed = 1");
    });

    it("survives sys.exit, and so does the server", async () => {
        const { response } = await client.eval("c", "import sys; sys.exit(3)");
        expect(response["error"]).toMatchObject({ identifier: "SystemExit" });
        expect(await client.print("c", "'still here'")).toBe("'still here'\n");
    });

    it("reads what a thread of its command prints", async () => {
        const command = [
            "import threading",
            "thread = threading.Thread(target=print, args=('from a thread',))",
            "thread.start()",
            "thread.join()",
        ].join("\n");
        expect(await client.print("c", command)).toBe("from a thread\n");
    });

    it("survives commands that fork", async () => {
        const command = [
            "import multiprocessing",
            "with multiprocessing.get_context('fork').Pool(2) as pool:",
            "    print(pool.map(abs, [-1, -2, -3]))",
        ].join("\n");
        expect(await client.print("c", command)).toBe("[1, 2, 3]\n");
        expect(
            await client.print(
                "c",
                "import os; print(os.waitstatus_to_exitcode(os.wait()[1])) if os.fork() else os._exit(7)",
            ),
        ).toBe("7\n");
        expect(await client.print("c", "6*7")).toBe("42\n");
    });
});

describe("two clients", () => {
    it("each read their own text alone, and responses in the order of their requests", async () => {
        const [a, b] = await Promise.all([
            StockClient.attached(server, "left"),
            StockClient.attached(server, "right"),
        ]);
        const count = 50;
        const runs = Array.from({ length: count }, (_, index) =>
            Promise.all([
                a.print("left", `print('left ${String(index)}')`),
                b.print("right", `print('right ${String(index)}')`),
            ]),
        );
        (await Promise.all(runs)).forEach(([left, right], index) => {
            expect(left).toBe(`left ${String(index)}\n`);
            expect(right).toBe(`right ${String(index)}\n`);
        });
        expect(a.events.filter(({ channel }) => !channel.startsWith("/yvm/left/"))).toHaveLength(1);
        expect(b.events.filter(({ channel }) => !channel.startsWith("/yvm/right/"))).toHaveLength(1);
        const order = a.events
            .filter(({ channel }) => channel === "/yvm/left/eval/response")
            .map(({ data }) => data["requestID"]);
        expect(order).toEqual(Array.from({ length: count }, (_, index) => `eval-${String(index + 1)}`));
        await Promise.all([a.disconnect(), b.disconnect()]);
    });
});
