import { afterAll, afterEach, beforeAll, beforeEach, describe, expect, it } from "vitest";

import { Gate } from "./Gate.js";
import { RawSocket } from "./RawSocket.js";
import { scrape } from "./scrape.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** Both versions of the protocol, as a stock client meets them: one table of cases, and what each makes of it. */

let server: ServerProcess;
let clientCount = 0;

beforeAll(async () => {
    server = await ServerProcess.start();
});

afterAll(async () => {
    expect((await server.stop()).code).toBe(0);
});

const silence = "nothing, since the version has no such channel";

const versions = [
    {
        apiVersion: "r24a0",
        output: "/text/output",
        error: "/text/error",
        window: { commandWindowRowSize: 10, commandWindowColSize: 33 },
        unknownWindow: { commandWindowWidth: 10, commandWindowHeight: 33 },
        traits: { useEcho: true },
        unknownTraits: { _useEcho: true },
        argument: (text: string): unknown => text,
        stringAsArgument: "[1. 2.]",
        numberAsArgument: "invalid conversion: double to string",
        numberAsFormat: "invalid conversion: double to string",
        long: { ywtype: "float64", ywsize: [], ywdata: [1] },
        cancelOfNothing: { cancelStatus: "UNABLE_TO_CANCEL_ALREADY_DONE" },
        interrupt: {},
        cancelGroup: {},
        clearAllBreakpoints: {},
        displayBreakpoint: {},
    },
    {
        apiVersion: "r22a0",
        output: "/output",
        error: "/error",
        window: { commandWindowWidth: 10, commandWindowHeight: 33 },
        unknownWindow: { commandWindowRowSize: 10, commandWindowColSize: 33 },
        traits: { _useEcho: true },
        unknownTraits: { useEcho: true },
        argument: (text: string): unknown => JSON.parse(text),
        stringAsArgument: "[1,2]",
        numberAsArgument: undefined,
        numberAsFormat: undefined,
        long: 1,
        cancelOfNothing: {},
        interrupt: silence,
        cancelGroup: silence,
        clearAllBreakpoints: silence,
        displayBreakpoint: {
            error: expect.objectContaining({ message: "Unknown GlobalBreakpoint type" }) as unknown,
        },
    },
] as const;

describe.each(versions)("with $apiVersion", (version) => {
    let id: string;
    let client: StockClient;

    beforeEach(async () => {
        id = `versions-${String(++clientCount)}`;
        client = new StockClient(server);
        await client.begin();
        await client.attachAs(id, version.apiVersion);
    });

    afterEach(async () => {
        await client.disconnect();
    });

    /** Runs a command without streams of its own choice, and with these run options. */
    async function run(command: string, runOptions: Data): Promise<Data[]> {
        const { response, texts } = await client.eval(id, command, { runOptions });
        expect(response["error"]).toBeUndefined();
        return texts;
    }

    /** What a request without further effect is answered with beside its identifier. */
    async function answered(channel: string, keys: Data): Promise<unknown> {
        const requestID = `asked-${channel}`;
        const before = client.events.length;
        const reply = await client.publish(`/yvm/${id}/${channel}/request`, { requestID, ...keys });
        expect(reply.successful).toBe(true);
        // Behind it in the same order, so that an answer that is to come has come.
        await client.print(id, "print()");
        const response = client.events
            .slice(before)
            .find(
                (event) =>
                    event.channel === `/yvm/${id}/${channel}/response` &&
                    event.data["requestID"] === requestID,
            );
        const { requestID: repeated, ...rest } = response?.data ?? {};
        return repeated === undefined ? silence : rest;
    }

    it("text comes on the version's channels, before the response", async () => {
        const { response, texts } = await client.eval(
            id,
            "import sys\nprint('out')\nprint('err', file=sys.stderr)",
        );
        expect(Object.keys(response)).toEqual(["requestID"]);
        const { requestID } = response;
        expect(texts).toEqual([
            { requestID, stream: 0, text: "out\n" },
            { requestID, stream: 1, text: "err\n" },
        ]);
        const channels = client.events.filter(({ data }) => data["requestID"] === requestID);
        expect(channels.map(({ channel }) => channel)).toEqual([
            `/yvm/${id}${version.output}`,
            `/yvm/${id}${version.error}`,
            `/yvm/${id}/eval/response`,
        ]);
    });

    it("the size of the window has the version's names", async () => {
        const print = "import shutil; print(*shutil.get_terminal_size())";
        const printed = async (runOptions: Data) => {
            const texts = await run(print, { useNullOutSink: false, ...runOptions });
            return texts.map(({ text }) => text).join("");
        };
        expect(await printed(version.window)).toBe("33 10\n");
        expect(await printed(version.unknownWindow)).toBe("80 24\n");
    });

    it("traits have the version's names", async () => {
        const echoed = async (outSinkTraits: Data) => {
            const texts = await run("print(1)", { useNullOutSink: false, outSinkTraits });
            return texts.map(({ text }) => text).join("");
        };
        expect(await echoed(version.traits)).toBe(">>> print(1)\n1\n");
        expect(await echoed(version.unknownTraits)).toBe("1\n");
    });

    it("traits that are none fail the command", async () => {
        const { response } = await client.eval(id, "1", { runOptions: { outSinkTraits: null } });
        expect(response["error"]).toMatchObject({
            status: 2,
            message: "boost::bad_get: failed value get using boost::get",
        });
    });

    it("a dequeue mode that is none is the default one", async () => {
        expect(await run("print(1)", { useNullOutSink: false, dequeueMode: "NEVER" })).toHaveLength(1);
    });

    it("arguments go in, and results come out", async () => {
        const { result } = await client.feval(id, "numpy.dot", [
            version.argument("[1,2]"),
            version.argument('{"ywtype":"int32","ywsize":[2],"ywdata":[3,4]}'),
        ]);
        expect(result).toEqual([11]);
        // A string: the text of an argument, or an argument that is a text.
        expect((await client.feval(id, "str", ["[1,2]"]))["result"]).toEqual([version.stringAsArgument]);
    });

    it("non-finite numbers go in", async () => {
        const { result } = await client.feval(id, "str", [
            version.argument('{"ywtype":"float64","ywsize":[3],"ywdata":["NaN",1.5,"-Inf"]}'),
        ]);
        expect(result).toEqual(["[ nan  1.5 -inf]"]);
    });

    it("an argument that cannot be read is told", async () => {
        const { error } = await client.feval(id, "str", [version.argument('{"ywtype":"float64"}')]);
        expect((error as Data)["message"]).toContain('"ywsize" is missing');
    });

    it("the form of results is the version's to choose", async () => {
        const { result } = await client.feval(id, "float", [version.argument("1")], {
            ydaOutputFormat: "alwaysYDALong",
        });
        expect(result).toEqual([version.long]);
    });

    it("the error of a command has all of its keys", async () => {
        const { response } = await client.eval(id, "1/0");
        expect(response["error"]).toMatchObject({ identifier: "ZeroDivisionError", status: 1 });
        expect(Object.keys(response["error"] as Data)).toHaveLength(9);
    });

    it("a key of the wrong type is told, and one of the other version ignored", async () => {
        const missing = (key: string, channel: string) =>
            `key: ${key} is missing from {\n  "requestID": "asked-${channel}"\n}`;
        const badGet = "boost::bad_get: failed value get using boost::get";
        const call = { function: "abs", numOutputsExpected: 1, rhsArgs: [version.argument("1")] };
        const place = (keys: Data) => ({ breakpoint: { fileName: "a.py", ...keys } });
        const [rows = "", columns = ""] = Object.keys(version.window);
        const foreign = Object.fromEntries(Object.keys(version.unknownWindow).map((key) => [key, "x"]));
        const inRunOptions: readonly [Data, string | undefined][] = [
            [{ dequeueMode: 3 }, badGet],
            [{ queueName: null }, badGet],
            [{ capabilitiesList: ["input", 1] }, badGet],
            [{ groupNames: "g" }, badGet],
            [{ suppressDebugControlOutput: 0 }, badGet],
            [{ [rows]: "80" }, badGet],
            [{ [columns]: null }, badGet],
            [{ ...foreign, outSinkTraits: { [Object.keys(version.unknownTraits)[0] ?? ""]: 1 } }, undefined],
            [{ outSinkTraits: { [Object.keys(version.traits)[0] ?? ""]: 1 } }, badGet],
            [{ errSinkTraits: [] }, badGet],
            [{ useNullOutSink: "false" }, badGet],
            [{ useNullErrSink: 0 }, badGet],
            [{ eventConnections: [] }, badGet],
            [{ eventConnections: { bad: 1 } }, badGet],
        ];
        const cases: readonly [string, Data, string | undefined][] = [
            ["eval", {}, missing("command", "eval")],
            ["eval", { command: 1 }, "invalid conversion: double to string"],
            ["eval", { command: "1", isUserEval: "yes" }, "invalid conversion: string to boolean"],
            ["eval", { command: "1", runOptions: [] }, "invalid conversion: array to object"],
            ["feval", {}, missing("function", "feval")],
            ["feval", { ...call, function: null }, "invalid conversion: null to string"],
            ["feval", { ...call, numOutputsExpected: "1" }, "invalid conversion: string to double"],
            ["feval", { ...call, rhsArgs: {} }, "invalid conversion: object to array"],
            ["feval", { ...call, rhsArgs: [1] }, version.numberAsArgument],
            ["feval", { ...call, runOptions: true }, "invalid conversion: boolean to object"],
            ["feval", { ...call, ydaOutputFormat: 1 }, version.numberAsFormat],
            ["cancel", {}, missing("requestIDtoCancel", "cancel")],
            ["cancel", { requestIDtoCancel: 1 }, "invalid conversion: double to string"],
            ["cancel", { requestIDtoCancel: "x", interrupt: 1 }, "invalid conversion: double to boolean"],
            ["subscribeEvent", {}, missing("eventName", "subscribeEvent")],
            ["subscribeEvent", { eventName: [] }, "invalid conversion: array to string"],
            ["disconnectEvent", {}, missing("requestIDtoDisconnect", "disconnectEvent")],
            ["disconnectEvent", { requestIDtoDisconnect: true }, "invalid conversion: boolean to string"],
            ["disconnectEvent", { requestIDtoDisconnect: "none" }, "No subscription for none"],
            ["setGlobalBreakpoint", {}, missing("breakpoint", "setGlobalBreakpoint")],
            ["setGlobalBreakpoint", { breakpoint: {} }, "invalid conversion: undefined to string"],
            ["clearGlobalBreakpoint", { breakpoint: { type: "error" } }, "Unknown GlobalBreakpoint type"],
            ["setLineBreakpoint", { breakpoint: "a.py" }, "invalid conversion: string to object"],
            ["setLineBreakpoint", place({ location: {} }), "invalid conversion: undefined to double"],
            [
                "clearLineBreakpoint",
                place({ location: { lineNumber: "1" } }),
                "invalid conversion: string to double",
            ],
            ["clearLineBreakpoint", place({ expression: 1 }), "invalid conversion: double to string"],
            ...inRunOptions.map(([runOptions, message]): [string, Data, string | undefined] => [
                "eval",
                { command: "1", runOptions },
                message,
            ]),
        ];
        for (const [channel, keys, message] of cases) {
            const answer = (await answered(channel, keys)) as Data;
            expect([channel, keys, (answer["error"] as Data | undefined)?.["message"]]).toEqual([
                channel,
                keys,
                message,
            ]);
        }
    });

    it("a cancel of nothing, a cancel by group and an interrupt are answered as the version does", async () => {
        expect(await answered("cancel", { requestIDtoCancel: "nothing" })).toEqual(version.cancelOfNothing);
        expect(await answered("interrupt", {})).toEqual(version.interrupt);
        expect(await answered("cancelGroup", { requestGroupNametoCancel: "g" })).toEqual(version.cancelGroup);
    });

    it("what runs is cancelled, with interrupt", async () => {
        const gate = new Gate();
        const running = client.request(`/yvm/${id}/eval`, {
            requestID: "running",
            command: `${gate.python}.read()\nwhile True: pass`,
        });
        await gate.open();
        const cancel = await client.request(`/yvm/${id}/cancel`, {
            requestID: "cancel",
            requestIDtoCancel: "running",
            interrupt: true,
        });
        expect(Object.keys(cancel).includes("cancelStatus")).toBe(version.apiVersion === "r24a0");
        expect((await running)["error"]).toMatchObject({ status: 3 });
        gate.remove();
    });

    it("breakpoints stop commands, and are cleared, as far as the version has them", async () => {
        const breakpoint = { type: "UNSUPPRESSED_OUTPUT" };
        expect(await answered("setGlobalBreakpoint", { breakpoint })).toEqual(version.displayBreakpoint);
        expect(await answered("clearGlobalBreakpoint", { breakpoint })).toEqual(version.displayBreakpoint);
        expect(await answered("breakInDebugger", {})).toEqual({});
        const command = `# ${id}\nx = 41\nx += 1`;
        const { result } = await client.feval(id, "yvm.debug.name_command", [
            version.argument(JSON.stringify(command)),
        ]);
        const [fileName] = result as [string];
        const line = { breakpoint: { fileName, location: { lineNumber: 3 } } };
        expect(await answered("setLineBreakpoint", line)).toEqual({});
        await client.request(`/yvm/${id}/subscribeEvent`, {
            requestID: "stops",
            eventName: "yvm::DebuggerStoppedEvent",
        });
        const running = client.eval(id, command);
        const { data } = await client.event(
            (event) => event.channel.endsWith("/fireEvent") && event.data["requestID"] === "stops",
        );
        expect(data["eventData"]).toMatchObject({ reason: "breakpoint", fileName, lineNumber: 3 });
        expect(await answered("clearLineBreakpoint", line)).toEqual({});
        await client.feval(id, "yvm.debug.resume", [], { numOutputsExpected: 0 });
        expect((await running).response["error"]).toBeUndefined();
        expect(await answered("clearAllBreakpoints", {})).toEqual(version.clearAllBreakpoints);
    });

    it("events are told", async () => {
        const channel = `/yvm/${id}/subscribeEvent`;
        const eventName = "ylutil::io::TextBaseEvent";
        expect(await client.request(channel, { requestID: "texts", eventName })).toEqual({
            requestID: "texts",
        });
        const { response } = await client.eval(id, "print('told')", {
            runOptions: { useNullOutSink: false, eventConnections: { own: eventName } },
        });
        expect(response["error"]).toBeUndefined();
        const told = client.events.filter(({ channel: from }) => from === `/yvm/${id}/event/fireEvent`);
        expect(told.map(({ data }) => data)).toEqual([
            { requestID: "own", eventData: { stream: 0, text: "told\n" } },
            { requestID: "texts", eventData: { stream: 0, text: "told\n" } },
        ]);
    });

    it("a client that leaves in the midst of a command stops it", async () => {
        const gate = new Gate();
        await client.publish(`/yvm/${id}/eval/request`, {
            requestID: "left",
            command: `${gate.python}.read()\nwhile True: pass`,
        });
        await gate.open();
        await client.request("/yvm/detach", { requestID: "bye", requestIDtoDetach: id });
        const next = `${id}-next`;
        await client.attachAs(next, version.apiVersion);
        expect(await client.print(next, "print('free')")).toBe("free\n");
        gate.remove();
    });

    it("commands are counted, and none stays in flight", async () => {
        const count = async () => (await scrape(server))("commands_total", 'kind="eval"');
        const before = await count();
        await client.print(id, "print()");
        expect(await count()).toBe(before + 1);
        await expect.poll(async () => (await scrape(server))("commands_in_flight")).toBe(0);
    });
});

describe("an attach", () => {
    let client: StockClient;

    beforeAll(async () => {
        client = new StockClient(server);
        await client.begin();
    });

    afterAll(async () => {
        await client.disconnect();
    });

    async function attach(requestID: string, supportedApiVersions: unknown): Promise<Data> {
        const before = client.events.length;
        await client.publish("/yvm/attach/request", {
            requestID,
            yvmID: "user-yvm",
            supportedApiVersions,
        });
        await client.event((event) => client.events.indexOf(event) >= before);
        return client.events.at(before)?.data ?? {};
    }

    const none = (list: string) =>
        `None of the requested API versions are supported: ${list}\nSupported API versions include: r22a0, r24a0`;

    it.each([
        [["r22a0", "r24a0"], "r24a0", undefined],
        [["r24a0", "r22a0"], "r24a0", undefined],
        [["r22a0", "r22a0"], "r22a0", undefined],
        [["r99", "", "r22a0"], "r22a0", undefined],
        [[], undefined, none("")],
        [["R22A0", "r22a0 "], undefined, none("R22A0, r22a0 ")],
        [["r22a0", 5], undefined, "invalid conversion: double to string"],
        [[["r22a0"]], undefined, "invalid conversion: array to string"],
        ["r22a0", undefined, "invalid conversion: string to array"],
        [{ 0: "r22a0" }, undefined, "invalid conversion: object to array"],
        [null, undefined, "invalid conversion: null to array"],
    ])("that offers %j", async (list, apiVersion, message) => {
        const answer = await attach(`offer-${String(++clientCount)}`, list);
        expect(answer["apiVersion"]).toBe(apiVersion);
        expect((answer["error"] as Data | undefined)?.["message"]).toBe(message);
    });

    it("to what is attached already is answered, and changes nothing", async () => {
        await client.attachAs("twice", "r22a0");
        expect(await attach("twice", ["r24a0"])).toMatchObject({ apiVersion: "r24a0" });
        const cancel = { requestID: "c", requestIDtoCancel: "none" };
        expect(await client.request("/yvm/twice/cancel", cancel)).toEqual({ requestID: "c" });
        expect(await client.publish("/yvm/sinks/set", {})).toMatchObject({ successful: true });
    });
});

describe("arguments inline, with r22a0", () => {
    let client: StockClient;
    const id = "integers";

    beforeAll(async () => {
        client = new StockClient(server);
        await client.begin();
        await client.attachAs(id, "r22a0");
    });

    afterAll(async () => {
        await client.disconnect();
    });

    it.each(["int8", "int64", "uint16", "uint64"])("go in as plain integers of %s", async (ywtype) => {
        const array = { ywtype, ywsize: [2], ywdata: [1, 100] };
        expect((await client.feval(id, "numpy.array", [array]))["result"]).toEqual([array]);
    });

    it.each([[["9007199254740993"]], [[1.5]], [["NaN"]], [[null]], ["1"]])(
        "are refused as %j, which the module would not answer",
        async (ywdata) => {
            const reply = await client.publish(`/yvm/${id}/feval/request`, {
                requestID: "refused",
                function: "str",
                numOutputsExpected: 1,
                rhsArgs: [{ ywtype: "int64", ywsize: [1], ywdata }],
            });
            expect(reply).toMatchObject({
                successful: false,
                error: "400::the ywdata of an integer ywtype must be an array of plain integers",
            });
        },
    );

    it("beyond the range of their kind are told", async () => {
        const { error } = await client.feval(id, "str", [{ ywtype: "int8", ywsize: [1], ywdata: [300] }]);
        expect((error as Data)["message"]).toContain("int8 takes integers from -128 to 127");
    });

    it("beyond 64 bits become the nearest that there is", async () => {
        // By hand: the text of a JavaScript number has no such digits.
        const rhsArgs =
            '[{"ywtype":"uint64","ywsize":[2],"ywdata":[18446744073709551615,99999999999999999999]}]';
        const { result } = await inline("numpy.array", rhsArgs);
        expect(result).toEqual([
            { ywtype: "uint64", ywsize: [2], ywdata: ["18446744073709551615", "18446744073709551615"] },
        ]);
    });

    it.each([
        ["int64", "9223372036854775808", "9223372036854775807"],
        ["int64", "-9223372036854775809", "-9223372036854775808"],
        ["uint64", "-1", 0],
    ])("beyond the range of %s become the nearest in it, as %s does", async (ywtype, given, nearest) => {
        const { result } = await inline(
            "numpy.array",
            `[{"ywtype":"${ywtype}","ywsize":[1],"ywdata":[${given}]}]`,
        );
        expect(result).toEqual([{ ywtype, ywsize: [1], ywdata: [nearest] }]);
    });

    it("beyond the range of doubles become null", async () => {
        expect((await inline("repr", "[1e400]"))["result"]).toEqual(["None"]);
        const { error } = await inline("repr", "[[1,1e400]]");
        expect((error as Data)["message"]).toContain("element 1 is null");
    });

    it.each([
        [{ ywtype: 5 }, "every ywtype in the data must be a string"],
        [
            { ywtype: "int8", ywdata: "x" },
            "the ywdata of an integer ywtype must be an array of plain integers",
        ],
    ])("in a record are refused where they pass for an array, as in %j", async (ywdata, why) => {
        const reply = await client.publish(`/yvm/${id}/feval/request`, {
            requestID: "refused",
            function: "str",
            numOutputsExpected: 1,
            rhsArgs: [{ ywtype: "record", ywdata }],
        });
        expect(reply).toMatchObject({ successful: false, error: `400::${why}` });
        const allowed = { ywtype: "text", ywdata: [1] };
        const { result } = await client.feval(id, "len", [{ ywtype: "record", ywdata: allowed }]);
        expect(result).toEqual([{ ywtype: "int64", ywsize: [], ywdata: [2] }]);
    });

    it("in a record keep no order, and of two members of one name the first counts", async () => {
        const rhsArgs = '[{"ywtype":"record","ywdata":{"b":1,"a":2,"b":3}}]';
        expect((await inline("str", rhsArgs))["result"]).toEqual(["{'a': 2.0, 'b': 1.0}"]);
    });

    /** Calls a function with arguments whose text stands as it is given. */
    async function inline(name: string, rhsArgs: string): Promise<Data> {
        const socket = await RawSocket.open(server.endpoint);
        const clientId = await socket.shakeHands(server.token);
        const message = (channel: string, fields: string) =>
            `[{"channel":"${channel}","clientId":"${clientId}",${fields}}]`;
        const until = async (channel: string) => {
            for (;;) {
                const frame = await socket.next();
                if (typeof frame === "number") {
                    throw new Error(`closed with ${String(frame)}`);
                }
                const found = frame.find((received) => received.channel === channel && "data" in received);
                if (found) {
                    return found.data as Data;
                }
            }
        };
        socket.send(message("/meta/connect", '"connectionType":"websocket","advice":{"timeout":0}'));
        socket.send(message("/meta/subscribe", '"subscription":"/yvm/attach/response"'));
        const attach = '"requestID":"raw","yvmID":"user-yvm","supportedApiVersions":["r22a0"]';
        socket.send(message("/yvm/attach/request", `"data":{${attach}}`));
        await until("/yvm/attach/response");
        socket.send(message("/meta/subscribe", '"subscription":"/yvm/raw/**"'));
        const call = `"requestID":"f","function":"${name}","numOutputsExpected":1,"rhsArgs":${rhsArgs}`;
        socket.send(message("/yvm/raw/feval/request", `"data":{${call}}`));
        const answer = await until("/yvm/raw/feval/response");
        socket.send(message("/yvm/detach/request", '"data":{"requestID":"d","requestIDtoDetach":"raw"}'));
        socket.send(message("/meta/disconnect", '"id":"bye"'));
        socket.close();
        return answer;
    }
});
