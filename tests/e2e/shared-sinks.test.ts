import { mkdtemp, readdir, readFile, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";

import { afterAll, beforeAll, beforeEach, describe, expect, it } from "vitest";

import type { Message } from "./Driver.js";
import { Gate } from "./Gate.js";
import { nodeDriver } from "./nodeDriver.js";
import { RawSocket } from "./RawSocket.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";
import { SocketVisitor } from "./Visitor.js";

/** The client-wide text of r22a0: fixed channels that all of its clients share. */

const set = "/yvm/sinks/set";
const text = "/yvm/sinks/response";
const refused = "403::the channel takes a client of this session that is attached with r22a0";

let server: ServerProcess;
let clientCount = 0;

beforeAll(async () => {
    server = await ServerProcess.start();
});

afterAll(async () => {
    expect((await server.stop()).code).toBe(0);
});

/** A stock client and what came to it client-wide. */
class Reader {
    private constructor(
        readonly id: string,
        readonly stock: StockClient,
    ) {}

    static async attached(apiVersion = "r22a0"): Promise<Reader> {
        const id = `shared-${String(++clientCount)}`;
        const stock = new StockClient(server);
        await stock.begin();
        await stock.attachAs(id, apiVersion);
        return new Reader(id, stock);
    }

    /** Attached with r22a0, and subscribed to the text. */
    static async listening(): Promise<Reader> {
        const reader = await Reader.attached();
        expect((await reader.stock.subscribe(text)).successful).toBe(true);
        return reader;
    }

    async set(traits: Data = {}): Promise<void> {
        expect((await this.stock.publish(set, traits)).successful).toBe(true);
    }

    /** Runs a command without streams of its own. */
    async run(command: string): Promise<void> {
        const { response, texts } = await this.stock.eval(this.id, command, { runOptions: {} });
        expect(response["error"]).toBeUndefined();
        expect(texts).toEqual([]);
    }

    get messages(): Data[] {
        const own = `/yvm/${this.id}/yvmSinks/output`;
        return this.stock.events
            .filter(({ channel }) => channel === text || channel === own)
            .map(({ data }) => data);
    }

    get text(): string {
        return this.messages.map((message) => message["text"] as string).join("");
    }

    async textUntil(ending: string): Promise<string> {
        await this.stock.event(() => this.text.endsWith(ending));
        return this.text;
    }
}

it("are the engine's once they are set, both streams in order, and before the response", async () => {
    const reader = await Reader.listening();
    await reader.set();
    await reader.run("import sys\nprint('out')\nprint('err', file=sys.stderr)\nprint('cut', end='')");
    expect(reader.messages).toEqual([
        { stream: 0, text: "out\n" },
        { stream: 1, text: "err\n" },
        { stream: 0, text: "cut" },
    ]);
    await reader.stock.disconnect();
});

it("give every client of r22a0 that listens all of the text, and those of r24a0 none", async () => {
    const [first, second, newer] = [
        await Reader.listening(),
        await Reader.listening(),
        await Reader.attached("r24a0"),
    ];
    const deaf = await Reader.attached();
    await first.set();
    for (const [reader, name] of [
        [first, "first"],
        [second, "second"],
        [newer, "newer"],
        [deaf, "deaf"],
    ] as const) {
        await reader.run(`print('of ${name}')`);
    }
    const all = "of first\nof second\nof newer\nof deaf\n";
    expect(await first.textUntil("deaf\n")).toBe(all);
    expect(await second.textUntil("deaf\n")).toBe(all);
    expect(newer.text).toBe("");
    expect(deaf.text).toBe("");
    await Promise.all([first, second, newer, deaf].map(({ stock }) => stock.disconnect()));
});

it.each(
    (["cometd", "faye"] as const).flatMap((library) =>
        (["websocket", "long-polling"] as const).map((transport) => ({ library, transport })),
    ),
)("are for each stock library, here $library by $transport", async ({ library, transport }) => {
    const id = `by-${library}-${transport}`;
    const stock = new StockClient(server, nodeDriver(library, { url: server.endpoint, transport }));
    await stock.begin();
    await stock.attachAs(id, "r22a0");
    expect((await stock.subscribe(text)).successful).toBe(true);
    expect((await stock.publish(set, {})).successful).toBe(true);
    const { response } = await stock.eval(id, `print("${id}")`, { runOptions: {} });
    expect(Object.keys(response)).toEqual(["requestID"]);
    const came = stock.events.filter(({ channel }) => channel === text || channel.endsWith("/eval/response"));
    expect(came).toEqual([
        { channel: text, data: { stream: 0, text: `${id}\n` } },
        { channel: `/yvm/${id}/eval/response`, data: response },
    ]);
    expect((await stock.driver.traffic()).complaints).toEqual([]);
    await stock.disconnect();
});

it("take the traits of the version", async () => {
    const reader = await Reader.listening();
    await reader.set({ outSinkTraits: { _useEcho: true } });
    await reader.run("print(1)");
    expect(await reader.textUntil("1\n")).toBe(">>> print(1)\n1\n");
    await reader.set({ outSinkTraits: { useEcho: true } });
    await reader.run("print(2)");
    expect(await reader.textUntil("2\n")).toBe(">>> print(1)\n1\n2\n");
    await reader.stock.disconnect();
});

it("copy to the diary and the log, as a command's own streams do not", async () => {
    const folder = await mkdtemp(join(tmpdir(), "diary-"));
    const ownServer = await ServerProcess.start("--cwd", folder);
    const stock = new StockClient(ownServer);
    await stock.begin();
    await stock.attachAs("diarist", "r22a0");
    const traits = { outSinkTraits: { _useDiary: true }, errSinkTraits: { _useLogging: true } };
    await stock.eval("diarist", "print('own')", {
        runOptions: { useNullOutSink: false, useNullErrSink: false, ...traits },
    });
    expect(await readdir(folder)).toEqual([]);
    await stock.publish(set, traits);
    await stock.eval("diarist", "import sys; print('out'); print('err', file=sys.stderr)", {
        runOptions: {},
    });
    expect(await readFile(join(folder, "yvm-diary.txt"), "utf8")).toBe("out\n");
    expect(await readFile(join(folder, "yvm-log.txt"), "utf8")).toMatch(/Z err\n$/);
    await stock.disconnect();
    expect((await ownServer.stop()).code).toBe(0);
    await rm(folder, { recursive: true });
});

it("stay when their client has left, until somebody installs others", async () => {
    const [leaving, staying, newer] = [
        await Reader.listening(),
        await Reader.listening(),
        await Reader.attached("r24a0"),
    ];
    await leaving.set();
    await leaving.stock.disconnect();
    await newer.run("print('still')");
    expect(await staying.textUntil("still\n")).toBe("still\n");
    const sinks = `/yvm/${newer.id}/yvmSinks`;
    expect(await newer.stock.request(sinks, { requestID: "in" })).toEqual({ requestID: "in" });
    await newer.run("print('mine')");
    expect(await newer.textUntil("mine\n")).toBe("mine\n");
    // Back to what there was before: the shared ones.
    await newer.stock.request(sinks, { requestID: "out", outSinkTraits: null, errSinkTraits: null });
    await newer.run("print('again')");
    expect(await staying.textUntil("again\n")).toBe("still\nagain\n");
    expect(newer.text).toBe("mine\n");
    await Promise.all([staying, newer].map(({ stock }) => stock.disconnect()));
});

it("get the text back when a client of r24a0 that has installed its own leaves", async () => {
    const [reader, newer] = [await Reader.listening(), await Reader.attached("r24a0")];
    await reader.set();
    await newer.stock.request(`/yvm/${newer.id}/yvmSinks`, { requestID: "in" });
    await newer.stock.disconnect();
    await reader.run("print('back')");
    expect(await reader.textUntil("back\n")).toBe("back\n");
    await reader.stock.disconnect();
});

it("stay when a client of r24a0 leaves that had installed its own before", async () => {
    const [reader, newer] = [await Reader.listening(), await Reader.attached("r24a0")];
    await newer.stock.request(`/yvm/${newer.id}/yvmSinks`, { requestID: "in" });
    await reader.set();
    await newer.stock.disconnect();
    await reader.run("print('stays')");
    expect(await reader.textUntil("stays\n")).toBe("stays\n");
    await reader.stock.disconnect();
});

it("carry a long text whole, in messages of a little more than 1,048,576 units at most", async () => {
    const reader = await Reader.listening();
    await reader.set();
    await reader.run("import sys\nfor n in range(400_000): sys.stdout.write(f'{n:09}\\n')\nprint('end')");
    const all = await reader.textUntil("end\n");
    expect(all.length).toBe(4_000_004);
    expect(all.split("\n").findIndex((line, n) => line !== String(n).padStart(9, "0"))).toBe(400_000);
    const longest = Math.max(...reader.messages.map((message) => (message["text"] as string).length));
    expect(longest).toBeLessThan(1_048_576 + 65_536 + 10);
    await reader.stock.disconnect();
});

it("go on for the others when one leaves while text flows, and another is gone without a word", async () => {
    const [writer, staying, leaving] = [
        await Reader.listening(),
        await Reader.listening(),
        await Reader.listening(),
    ];
    const vanishing = await SocketVisitor.open(server.endpoint);
    await vanishing.handshake(server.token);
    vanishing.connect();
    await vanishing.ask("/meta/subscribe", { subscription: "/yvm/attach/response" });
    await vanishing.request("/yvm/attach", {
        requestID: "vanishing",
        yvmID: "user-yvm",
        supportedApiVersions: ["r22a0"],
    });
    await vanishing.ask("/meta/subscribe", { subscription: text });
    await writer.set();
    const gate = new Gate();
    const lines = Array.from({ length: 40_000 }, (_, n) => `${String(n)}\n`).join("");
    const written = writer.run(
        `for n in range(20_000): print(n)\n${gate.python}.read()\nfor n in range(20_000, 40_000): print(n)`,
    );
    await leaving.stock.event(() => leaving.text !== "");
    vanishing.destroy();
    await leaving.stock.disconnect();
    await gate.open();
    await written;
    for (const reader of [writer, staying]) {
        expect(await reader.textUntil("\n39999\n")).toBe(lines);
    }
    expect(lines.startsWith(leaving.text)).toBe(true);
    expect(leaving.text.length).toBeLessThan(lines.length);
    gate.remove();
    await Promise.all([writer, staying].map(({ stock }) => stock.disconnect()));
});

it("are those of the one that set them last, whoever asked, and all hear both", async () => {
    const [first, second] = [await Reader.listening(), await Reader.listening()];
    await first.set({ outSinkTraits: { _useEcho: true } });
    // Nobody answers the set, and sessions do not wait for one another.
    await first.run("pass");
    expect(await second.textUntil("pass\n")).toBe(">>> pass\n");
    await second.set();
    await second.run("print(1)");
    expect(await first.textUntil("1\n")).toBe(">>> pass\n1\n");
    await first.set({ outSinkTraits: { _useEcho: true } });
    await first.run("print(2)");
    expect(await second.textUntil("2\n")).toBe(">>> pass\n1\n>>> print(2)\n2\n");
    await Promise.all([first, second].map(({ stock }) => stock.disconnect()));
});

it("give way to those that a client of r24a0 found, when it reverts behind them", async () => {
    const [reader, newer] = [await Reader.listening(), await Reader.attached("r24a0")];
    const sinks = `/yvm/${newer.id}/yvmSinks`;
    await reader.set({ outSinkTraits: { _useEcho: true } });
    // Nobody answers the set; its echo tells that it has been carried out.
    await reader.run("pass");
    expect(await reader.textUntil("pass\n")).toBe(">>> pass\n");
    await newer.stock.request(sinks, { requestID: "in" });
    await reader.set();
    await reader.run("print('ours')");
    expect(await reader.textUntil("ours\n")).toBe(">>> pass\nours\n");
    await newer.stock.request(sinks, { requestID: "out", outSinkTraits: null, errSinkTraits: null });
    await newer.run("print('found')");
    expect(await reader.textUntil("found\n")).toBe(">>> pass\nours\n>>> print('found')\nfound\n");
    await Promise.all([reader, newer].map(({ stock }) => stock.disconnect()));
});

it("1,000 sets in a row end with sinks that work", async () => {
    const reader = await Reader.listening();
    const replies = await reader.stock.driver.batch(
        Array.from({ length: 1000 }, () => ({ channel: set, data: {} })),
    );
    expect(replies.filter(({ successful }) => successful !== true)).toEqual([]);
    await reader.run("print('works')");
    expect(await reader.textUntil("works\n")).toBe("works\n");
    await reader.stock.disconnect();
});

describe("a session", () => {
    let reader: Reader;

    beforeEach(async () => {
        reader = await Reader.attached("r24a0");
    });

    it("without a client of r22a0 is refused them", async () => {
        expect(await reader.stock.publish(set, {})).toMatchObject({ successful: false, error: refused });
        expect(await reader.stock.subscribe(text)).toMatchObject({ successful: false, error: refused });
        await reader.stock.disconnect();
    });

    it("is refused them as long as its attach is under way", async () => {
        const socket = await RawSocket.open(server.endpoint);
        const clientId = await socket.shakeHands(server.token);
        const requestID = `${reader.id}-early`;
        // One frame, of which each message is looked at before the attach is answered.
        const replies = (await socket.ask(
            JSON.stringify([
                {
                    channel: "/yvm/attach/request",
                    id: "1",
                    clientId,
                    data: { requestID, yvmID: "user-yvm", supportedApiVersions: ["r22a0"] },
                },
                { channel: set, id: "2", clientId, data: {} },
                { channel: "/meta/subscribe", id: "3", clientId, subscription: text },
            ]),
        )) as Message[];
        expect(replies).toMatchObject([
            { id: "1", successful: true },
            { id: "2", successful: false, error: refused },
            { id: "3", successful: false, error: refused },
        ]);
        socket.close();
        await reader.stock.disconnect();
    });

    it("with a client of r22a0 may use these two channels, and nothing near them", async () => {
        const { stock } = reader;
        await stock.attachAs(`${reader.id}-old`, "r22a0");
        for (const channel of ["/yvm/sinks", "/yvm/sinks/response", `${set}/request`, `${set}/response`]) {
            expect(await stock.publish(channel, { requestID: "1" })).toMatchObject({ successful: false });
        }
        for (const pattern of [set, "/yvm/sinks/*", "/yvm/sinks/**", "/yvm/*", "/yvm/**", `${text}/**`]) {
            expect(await stock.subscribe(pattern)).toMatchObject({
                successful: false,
                error: "403::the channel belongs to no client of this session",
            });
        }
        await stock.disconnect();
    });

    it("may use them from the answer to its attach to its last detach", async () => {
        const { stock } = reader;
        await stock.attachAs(`${reader.id}-old`, "r22a0");
        expect((await stock.subscribe(text)).successful).toBe(true);
        await reader.set();
        await reader.run("print('heard')");
        expect(await reader.textUntil("heard\n")).toBe("heard\n");
        await stock.request("/yvm/detach", { requestID: "d", requestIDtoDetach: `${reader.id}-old` });
        expect(await stock.publish(set, {})).toMatchObject({ successful: false, error: refused });
        const other = await Reader.listening();
        // The client has gone once somebody else may have its identifier; the subscription ends with it.
        const again = { requestID: `${reader.id}-old`, yvmID: "user-yvm", supportedApiVersions: ["r22a0"] };
        while ((await other.stock.publish("/yvm/attach/request", again)).successful !== true);
        await reader.run("print('unheard')");
        await other.textUntil("unheard\n");
        await reader.run("print('end')");
        expect(reader.text).toBe("heard\n");
        await Promise.all([stock.disconnect(), other.stock.disconnect()]);
    });

    it("is told of traits that cannot be read, and the sinks stay as they were", async () => {
        const { stock } = reader;
        await stock.attachAs(`${reader.id}-old`, "r22a0");
        await stock.subscribe(text);
        await reader.set({ outSinkTraits: { _useEcho: true } });
        for (const [traits, error] of [
            [{ outSinkTraits: null }, "outSinkTraits and errSinkTraits must be objects"],
            [{ errSinkTraits: [] }, "outSinkTraits and errSinkTraits must be objects"],
            [{ outSinkTraits: { _useEcho: 0 } }, "every trait of a sink must be true or false"],
        ] as const) {
            expect(await stock.publish(set, traits)).toMatchObject({
                successful: false,
                error: `400::${error}`,
            });
        }
        await reader.run("print(1)");
        expect(await reader.textUntil("1\n")).toBe(">>> print(1)\n1\n");
        await stock.disconnect();
    });
});
