import { afterAll, beforeAll, beforeEach, describe, expect, it } from "vitest";

import { scrape } from "./scrape.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";
import { SocketVisitor, type Visitor } from "./Visitor.js";

/** Client-wide text: the sinks of the engine that a client takes over, and gives back. */

let server: ServerProcess;
let clientCount = 0;
let requestCount = 0;

/** Text of one stream without text of the other in between. */
interface Run {
    stream: number;
    text: string;
}

/** A stock client with its own view of what came through its sinks. */
class SinkClient {
    readonly #runs: Run[] = [];
    #readCount = 0;

    private constructor(
        readonly id: string,
        readonly stock: StockClient,
    ) {}

    static async attached(): Promise<SinkClient> {
        const id = `sinks-${String(++clientCount)}`;
        return new SinkClient(id, await StockClient.attached(server, id));
    }

    /** Resolves to the response to a request with these trait keys. */
    async request(traits: Data): Promise<Data> {
        const requestID = `sinks-${String(++requestCount)}`;
        const { requestID: answered, ...rest } = await this.stock.request(`/yvm/${this.id}/yvmSinks`, {
            requestID,
            ...traits,
        });
        expect(answered).toBe(requestID);
        return rest;
    }

    async install(traits: Data = {}): Promise<void> {
        expect(await this.request(traits)).toEqual({});
    }

    async revert(): Promise<void> {
        expect(await this.request({ outSinkTraits: null, errSinkTraits: null })).toEqual({});
    }

    /** Runs a command without streams of its own. */
    async run(command: string): Promise<void> {
        const { response, texts } = await this.stock.eval(this.id, command, { runOptions: {} });
        expect(response["error"]).toBeUndefined();
        expect(texts).toEqual([]);
    }

    /** What came through the sinks so far, with neighbours of one stream joined. */
    get runs(): readonly Run[] {
        const { events } = this.stock;
        for (; this.#readCount < events.length; ++this.#readCount) {
            const event = events[this.#readCount];
            if (event?.channel === `/yvm/${this.id}/yvmSinks/output`) {
                expect(Object.keys(event.data).sort()).toEqual(["stream", "text"]);
                const { stream, text } = event.data as unknown as Run;
                const last = this.#runs.at(-1);
                if (last?.stream === stream) {
                    last.text += text;
                } else {
                    this.#runs.push({ stream, text });
                }
            }
        }
        return this.#runs;
    }

    /** The text of the sinks, of both streams. */
    get text(): string {
        return this.runs.map(({ text }) => text).join("");
    }

    /** Waits until the text of the sinks ends like this, and returns all of it. */
    async textUntil(ending: string): Promise<string> {
        for (;;) {
            const { length } = this.stock.events;
            const { text } = this;
            if (text.endsWith(ending)) {
                return text;
            }
            await this.stock.event(() => this.stock.events.length > length);
        }
    }

    /** Takes the sinks for the time of `use`. */
    static async installed(use: (client: SinkClient) => Promise<void>, traits: Data = {}): Promise<void> {
        const client = await SinkClient.attached();
        await client.install(traits);
        await use(client);
        await client.revert();
        await client.stock.disconnect();
    }
}

const servers = [
    { batching: "on", options: [] },
    { batching: "off", options: ["--feature", "YVMJS_SmartBuf=off"] },
];

describe.each(servers)("with batching $batching,", ({ batching, options }) => {
    beforeAll(async () => {
        server = await ServerProcess.start(...options);
    });

    afterAll(async () => {
        expect((await server.stop()).code).toBe(0);
    });

    it("text reaches the client that installed sinks", () =>
        SinkClient.installed(async (client) => {
            await client.run("print('hello')");
            await client.textUntil("hello\n");
            expect(client.runs).toEqual([{ stream: 0, text: "hello\n" }]);
        }));

    it("the streams stay apart and in order", () =>
        SinkClient.installed(async (client) => {
            await client.run(
                "import sys\nfor n in range(3):\n    print('out', n)\n    print('err', n, file=sys.stderr)",
            );
            await client.textUntil("err 2\n");
            expect(client.runs).toEqual(
                [0, 1, 2].flatMap((n) => [
                    { stream: 0, text: `out ${String(n)}\n` },
                    { stream: 1, text: `err ${String(n)}\n` },
                ]),
            );
        }));

    it("text in any script arrives whole", () =>
        SinkClient.installed(async (client) => {
            const text = "e\u0301 שלום \u{1F600} 数値";
            await client.run(`print(${JSON.stringify(text)})\nprint('cut \\ud83d.')`);
            expect(await client.textUntil(".\n")).toBe(`${text}\ncut \ufffd.\n`);
        }));

    it("100,000 lines arrive, every one and in order", () =>
        SinkClient.installed(async (client) => {
            await client.run("for n in range(100_000):\n    print(n)\nprint('end')");
            const text = await client.textUntil("end\n");
            const lines = text.split("\n");
            expect(lines).toHaveLength(100_002);
            expect(lines.findIndex((line, n) => line !== String(n))).toBe(100_000);
        }));

    it("a command's own streams go before the sinks", () =>
        SinkClient.installed(async (client) => {
            expect(await client.stock.print(client.id, "print('own')")).toBe("own\n");
            await client.run("print('shared')");
            expect(await client.textUntil("shared\n")).toBe("shared\n");
        }));

    it("the last client to install gets the text of every client", async () => {
        const [first, second] = [await SinkClient.attached(), await SinkClient.attached()];
        await first.install();
        await first.run("print('one')");
        await first.textUntil("one\n");
        await second.install();
        await first.run("print('two')");
        expect(await second.textUntil("two\n")).toBe("two\n");
        // Back to what there was before: the first client's sinks.
        await second.revert();
        await second.run("print('three')");
        expect(await first.textUntil("three\n")).toBe("one\nthree\n");
        expect(second.text).toBe("two\n");
        await first.revert();
        await Promise.all([first.stock.disconnect(), second.stock.disconnect()]);
    });

    it("a revert gives the text back to the console", async () => {
        const client = await SinkClient.attached();
        await client.install();
        await client.run("print('mine')");
        await client.textUntil("mine\n");
        await client.install({ outSinkTraits: { useEcho: true } });
        await client.revert();
        await client.run("print('console, again')");
        await client.install();
        await client.run("print('mine too')");
        expect(await client.textUntil("too\n")).toBe("mine\nmine too\n");
        await client.revert();
        await client.stock.disconnect();
    });

    it("a revert without an install installs", async () => {
        const client = await SinkClient.attached();
        await client.revert();
        await client.run("print('installed')");
        expect(await client.textUntil("\n")).toBe("installed\n");
        await client.revert();
        await client.stock.disconnect();
    });

    const traitKeys = [
        "supportsMore",
        "supportsHotlinks",
        "useDiary",
        "useEcho",
        "needsFormattingForDisplay",
        "useLogging",
    ];
    const wrongValues: unknown[] = [null, false, 0, "x", [], [{}]];
    const wrongTraits: Data[] = [
        ...wrongValues.map((value) => ({ outSinkTraits: value, errSinkTraits: {} })),
        ...wrongValues.map((value) => ({ outSinkTraits: {}, errSinkTraits: value })),
        { outSinkTraits: "x", errSinkTraits: null },
        ...traitKeys.flatMap((key) =>
            [null, 1, "true", [], {}].map((value) => ({ outSinkTraits: { [key]: value } })),
        ),
    ];
    // Each of them waits for a timer where text is batched.
    const someWrongTraits = batching === "off" ? wrongTraits : wrongTraits.filter((_, n) => n % 8 === 0);

    it("traits of every wrong type install sinks with default traits", async () => {
        const client = await SinkClient.attached();
        let expected = "";
        for (const traits of someWrongTraits) {
            await client.install(traits);
            expected += `${JSON.stringify(traits)}\n`;
            await client.run(`print(${JSON.stringify(JSON.stringify(traits))})`);
            expect(await client.textUntil(`${JSON.stringify(traits)}\n`)).toBe(expected);
        }
        await client.revert();
        await client.stock.disconnect();
    });

    it.each([{ errSinkTraits: null }, { outSinkTraits: [] }, { outSinkTraits: { useEcho: 1 } }])(
        "the run options of a command refuse %j",
        async (traits) => {
            const stock = await StockClient.attached(server, `sinks-${String(++clientCount)}`);
            const { response } = await stock.eval(`sinks-${String(clientCount)}`, "1", {
                runOptions: traits,
            });
            expect(response["error"]).toMatchObject({
                status: 2,
                message: "boost::bad_get: failed value get using boost::get",
            });
            await stock.disconnect();
        },
    );

    it("a request without an identifier is refused or unanswered, and changes nothing", () =>
        SinkClient.installed(async (client) => {
            const channel = `/yvm/${client.id}/yvmSinks/request`;
            for (const data of [{ requestID: 5 }, { outSinkTraits: null, errSinkTraits: null }]) {
                await client.stock.publish(channel, data);
            }
            await client.run("print('still mine')");
            expect(await client.textUntil("\n")).toBe("still mine\n");
        }));

    it("1,000 installs and reverts are answered in order, and leave the console in force", async () => {
        const client = await SinkClient.attached();
        const revert = { outSinkTraits: null, errSinkTraits: null };
        const requests = Array.from({ length: 2000 }, (_, n) => ({
            channel: `/yvm/${client.id}/yvmSinks/request`,
            data: { requestID: `storm-${String(n)}`, ...(n % 2 ? revert : {}) },
        }));
        for (let n = 0; n < requests.length; n += 500) {
            const replies = await client.stock.driver.batch(requests.slice(n, n + 500));
            expect(replies.filter(({ successful }) => successful !== true)).toEqual([]);
        }
        await client.stock.event(({ data }) => data["requestID"] === "storm-1999");
        const responses = client.stock.events.filter(({ channel }) => channel.endsWith("/yvmSinks/response"));
        expect(responses.map(({ data }) => data)).toEqual(
            requests.map(({ data: { requestID } }) => ({ requestID })),
        );
        await client.run("print('storm is over')");
        await client.install();
        await client.run("print('mine')");
        expect(await client.textUntil("\n")).toBe("mine\n");
        await client.revert();
        await client.stock.disconnect();
    });

    it("1,000 installs end with one revert", async () => {
        const client = await SinkClient.attached();
        const replies = await client.stock.driver.batch(
            Array.from({ length: 1000 }, (_, n) => ({
                channel: `/yvm/${client.id}/yvmSinks/request`,
                data: { requestID: `pile-${String(n)}` },
            })),
        );
        expect(replies.filter(({ successful }) => successful !== true)).toEqual([]);
        await client.stock.event(({ data }) => data["requestID"] === "pile-999");
        await client.run("print('mine')");
        expect(await client.textUntil("\n")).toBe("mine\n");
        await client.revert();
        await client.run("print('one revert is enough')");
        await client.install();
        await client.run("print('mine')");
        expect(await client.textUntil("mine\nmine\n")).toBe("mine\nmine\n");
        await client.revert();
        await client.stock.disconnect();
    });

    it("a command's own text precedes its response", () =>
        SinkClient.installed(async (client) => {
            for (let n = 0; n < 50; ++n) {
                // No newline, no flush: all of it is there nevertheless.
                const text = await client.stock.print(client.id, `print('x' * ${String(n * 1000)}, end='.')`);
                expect(text).toBe(`${"x".repeat(n * 1000)}.`);
            }
        }));

    if (batching === "off") {
        it("the sinks' text of a command precedes its response", () =>
            SinkClient.installed(async (client) => {
                let expected = "";
                for (let n = 0; n < 50; ++n) {
                    await client.run(`print(${String(n)}, end='.')`);
                    expected += `${String(n)}.`;
                    expect(client.text).toBe(expected);
                }
            }));
    }
});

it.each([
    { switches: ["webui=off"], when: "ahead of the response" },
    { switches: ["webui=off", "YVMJS_SmartBuf=off"], when: "ahead of the response" },
    { switches: ["webui=on", "YVMJS_SmartBuf=on"], when: "by the timer" },
])("with $switches text arrives $when", async ({ switches, when }) => {
    server = await ServerProcess.start(...switches.flatMap((feature) => ["--feature", feature]));
    await SinkClient.installed(async (client) => {
        await client.run("print('x')");
        if (when === "ahead of the response") {
            expect(client.text).toBe("x\n");
        }
        expect(await client.textUntil("x\n")).toBe("x\n");
    });
    expect((await server.stop()).code).toBe(0);
});

it("what no sinks take goes to the console of the server", async () => {
    server = await ServerProcess.start();
    await SinkClient.installed(async (client) => {
        await client.run("print('to the client')");
        await client.textUntil("client\n");
        await client.revert();
        await client.run("import sys\nprint('to the console')\nprint('oh dear', file=sys.stderr)");
        await client.install();
    });
    const { code, stdout, stderr } = await server.stop();
    expect(code).toBe(0);
    expect(stdout).toContain("to the console\n");
    expect(stderr).toContain("oh dear\n");
    expect(stdout).not.toContain("to the client");
});

/** How a client leaves that has taken the sinks. */
const leavings = [
    { manner: "disconnects", leave: (visitor: Visitor) => visitor.ask("/meta/disconnect", {}) },
    {
        manner: "vanishes",
        leave: (visitor: Visitor) => {
            visitor.destroy();
            return Promise.resolve();
        },
    },
    {
        manner: "detaches",
        leave: (visitor: Visitor) =>
            visitor.request("/yvm/detach", { requestID: "d", requestIDtoDetach: "leaving" }),
    },
];

describe.each(leavings)("when a client that took the sinks $manner,", ({ leave }) => {
    let observer: SinkClient;
    let visitor: Visitor;

    beforeAll(async () => {
        server = await ServerProcess.start("--grace-time", "1", "--connect-timeout", "1");
        observer = await SinkClient.attached();
    });

    beforeEach(async () => {
        visitor = await SocketVisitor.open(server.endpoint);
        await visitor.handshake(server.token);
        visitor.connect();
        for (const channel of ["/yvm/attach/response", "/yvm/detach/response"]) {
            await visitor.ask("/meta/subscribe", { subscription: channel });
        }
        await visitor.request("/yvm/attach", {
            requestID: "leaving",
            yvmID: "user-yvm",
            supportedApiVersions: ["r24a0"],
        });
        await visitor.ask("/meta/subscribe", { subscription: "/yvm/leaving/**" });
        await visitor.request("/yvm/leaving/yvmSinks", { requestID: "s" });
    });

    afterAll(async () => {
        await observer.stock.disconnect();
        const { code, stdout } = await server.stop();
        expect(code).toBe(0);
        expect(stdout).toContain("to the console, again\n");
        expect(stdout).not.toContain("to a client");
    });

    /** Waits until the server has carried out the detach. */
    async function untilGone(): Promise<void> {
        while ((await scrape(server))("clients") !== 1) {
            await new Promise((resolve) => setTimeout(resolve, 20));
        }
    }

    it("the text goes to the console again", async () => {
        await observer.run("print('to a client')");
        await leave(visitor);
        await untilGone();
        await observer.run("print('to the console, again')");
    });

    it("the sinks that another client installed since stay", async () => {
        await observer.install();
        await leave(visitor);
        await untilGone();
        await observer.run("print('to a client, still')");
        expect(await observer.textUntil("still\n")).toBe("to a client, still\n");
    });
});
