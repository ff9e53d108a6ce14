import { mkdtemp, readdir, readFile, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";

import { afterAll, afterEach, beforeAll, beforeEach, describe, expect, it } from "vitest";

import { nodeDriver } from "./nodeDriver.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data, type Event } from "./StockClient.js";

/** Every way in which a command can print, and where its text arrives. */

interface Kind {
    readonly name: string;
    readonly command: string;
    readonly stream: 0 | 1;
    /** Stands in the text; all of the text unless `isPart`. */
    readonly text: string;
    readonly isPart?: boolean;
}

const kinds: Kind[] = [
    {
        name: "sys.stdout",
        command: "import sys\nsys.stdout.write('to stdout');",
        stream: 0,
        text: "to stdout",
    },
    {
        name: "sys.stderr",
        command: "import sys\nsys.stderr.write('to stderr');",
        stream: 1,
        text: "to stderr",
    },
    { name: "descriptor 1", command: "import os\nos.write(1, b'to 1');", stream: 0, text: "to 1" },
    { name: "descriptor 2", command: "import os\nos.write(2, b'to 2');", stream: 1, text: "to 2" },
    {
        name: "printf of C",
        command: "import ctypes\nctypes.CDLL(None).printf(b'by C: %d', 7);",
        stream: 0,
        text: "by C: 7",
    },
    { name: "a displayed value", command: "['shown']", stream: 0, text: "['shown']\n" },
    {
        name: "a warning",
        command: "import warnings\nwarnings.warn('take care')",
        stream: 1,
        text: "UserWarning: take care\n",
        isPart: true,
    },
    {
        name: "a traceback",
        command:
            "import traceback\ntry: raise ValueError('went wrong')\nexcept ValueError: traceback.print_exc()",
        stream: 1,
        text: "ValueError: went wrong\n",
        isPart: true,
    },
    {
        name: "a record of logging",
        command: "import logging\nlogging.getLogger('part').warning('noted')",
        stream: 1,
        text: "noted\n",
    },
    {
        name: "a child process",
        command: "import subprocess\nsubprocess.run(['echo', 'by a child']);",
        stream: 0,
        text: "by a child\n",
    },
    {
        name: "a child process that complains",
        command: "import subprocess\nsubprocess.run(['sh', '-c', 'echo complaint >&2']);",
        stream: 1,
        text: "complaint\n",
    },
    {
        name: "a forked process",
        command: "import os\nif os.fork() == 0:\n    print('by a fork')\n    os._exit(0)\nos.wait();",
        stream: 0,
        text: "by a fork\n",
    },
    {
        name: "a thread",
        command:
            "import threading\nt = threading.Thread(target=print, args=('by a thread',))\nt.start()\nt.join()",
        stream: 0,
        text: "by a thread\n",
    },
    {
        name: "the traceback of a thread",
        command: "import threading\nt = threading.Thread(target=lambda: 1 / 0)\nt.start()\nt.join()",
        stream: 1,
        text: "ZeroDivisionError: division by zero\n",
        isPart: true,
    },
];

const ownStreams = { useNullOutSink: false, useNullErrSink: false };

function joined(texts: readonly Data[], stream: number): string {
    return texts
        .filter((text) => text["stream"] === stream)
        .map(({ text }) => text)
        .join("");
}

let server: ServerProcess;
let folder: string;
let client: StockClient;
let id: string;
let lastId = 0;

beforeAll(async () => {
    folder = await mkdtemp(join(tmpdir(), "output-"));
    server = await ServerProcess.start("--cwd", folder);
});

afterAll(async () => {
    expect((await server.stop()).code).toBe(0);
    await rm(folder, { recursive: true });
});

beforeEach(async () => {
    lastId += 1;
    id = `o${String(lastId)}`;
    client = await StockClient.attached(server, id);
});

afterEach(async () => {
    await client.disconnect();
});

/** Publishes a command and does not wait for its response. */
async function submit(requestID: string, command: string, runOptions: Data = ownStreams): Promise<void> {
    const data = { requestID, command, runOptions };
    expect((await client.publish(`/yvm/${id}/eval/request`, data)).successful).toBe(true);
}

const isResponse = (requestID: string) => (event: Event) =>
    event.channel.endsWith("/response") && event.data["requestID"] === requestID;

/** The text of one request that has come so far. */
function textOf(requestID: string): string {
    return client.events
        .filter(({ channel, data }) => channel.includes("/text/") && data["requestID"] === requestID)
        .map(({ data }) => String(data["text"]))
        .join("");
}

/** Text of both streams, each piece behind the number of its stream whenever that changes. */
function marked(events: readonly Event[]): string {
    let last: unknown;
    return events
        .map(({ data: { stream, text } }) => {
            const mark = stream === last ? "" : `[${String(stream)}]`;
            last = stream;
            return mark + String(text);
        })
        .join("");
}

/** Waits until that much of the text of a request has come. */
async function printed(requestID: string, text: string): Promise<void> {
    await client.event(() => textOf(requestID).includes(text));
}

describe("the own streams of a command", () => {
    it.each(kinds)("carry what it prints by $name", async ({ command, stream, text, isPart }) => {
        const other = await StockClient.attached(server, `${id}-other`);
        const { response, texts } = await client.eval(id, command);
        expect(response).not.toHaveProperty("error");
        expect(joined(texts, stream)).toEqual(isPart ? expect.stringContaining(text) : text);
        expect(joined(texts, 1 - stream)).toBe("");
        // What comes behind an answer to the other one would have come before it.
        await other.feval(`${id}-other`, "abs", ["1"]);
        expect(other.events.filter(({ channel }) => channel.includes("text"))).toEqual([]);
        await other.disconnect();
    });

    it("carry the text of a query apart from that of the command beneath it", async () => {
        await submit(
            "host",
            "leave = False\nprint('host begins')\nwhile not leave: pass\nprint('host ends')",
        );
        await printed("host", "host begins");
        const { texts } = await client.eval(
            id,
            "import sys\nprint('query')\nprint('aside', file=sys.stderr)\nleave = True",
            { runOptions: { ...ownStreams, dequeueMode: "DEQUEUE_AT_PPE" } },
        );
        expect(joined(texts, 0)).toBe("query\n");
        expect(joined(texts, 1)).toBe("aside\n");
        await client.event(isResponse("host"));
        expect(textOf("host")).toBe("host begins\nhost ends\n");
    });

    it.each([
        ["websocket", "output", "sys.stdout", "sys.stderr", 0],
        ["websocket", "errors", "sys.stderr", "sys.stdout", 1],
        ["long-polling", "output", "sys.stdout", "sys.stderr", 0],
    ] as const)(
        "keep their order under load, and precede the response, by %s, %s first",
        async (transport, _, a, b, first) => {
            const count = 100;
            const lines = 20;
            const command = (n: number) =>
                `import sys\nfor i in range(${String(lines)}):\n` +
                `    print(${String(n)}, i, file=${a})\n    print(${String(n)}, -i, file=${b})`;
            const expected = (n: number) =>
                Array.from({ length: lines }, (_, i) => {
                    const [one, other] = [`${String(n)} ${String(i)}\n`, `${String(n)} ${String(-i)}\n`];
                    return `[${String(first)}]${one}[${String(1 - first)}]${other}`;
                }).join("");
            const name = `${id}-loaded`;
            const driver = nodeDriver("cometd", { url: server.endpoint, transport });
            const loaded = await StockClient.attached(server, name, driver);
            await driver.batch(
                Array.from({ length: count }, (_, n) => ({
                    channel: `/yvm/${name}/eval/request`,
                    data: { requestID: `load-${String(n)}`, command: command(n), runOptions: ownStreams },
                })),
            );
            for (let n = 0; n < count; ++n) {
                const requestID = `load-${String(n)}`;
                await loaded.event(isResponse(requestID));
                const ofRequest = loaded.events.filter(({ data }) => data["requestID"] === requestID);
                expect(ofRequest.findIndex(isResponse(requestID))).toBe(ofRequest.length - 1);
                expect(marked(ofRequest.slice(0, -1))).toBe(expected(n));
            }
            await loaded.disconnect();
        },
    );

    it.each([
        [
            "a str",
            "import sys\nfor half in '\\ud83d\\ude00':\n    sys.stdout.write(half)\n    sys.stdout.flush()",
        ],
        ["bytes", "import os\nfor byte in '\u{1F600}'.encode():\n    os.write(1, bytes([byte]))"],
    ])("carry a character whole that is written in pieces of %s", async (_, command) => {
        expect(await client.print(id, command)).toBe("\u{1F600}");
    });

    it("carry text of any script, and U+FFFD for what is none", async () => {
        const text =
            "\u{1F469}\u200D\u{1F680} e\u0301 \u05E9\u05DC\u05D5\u05DD \u0928\u092E\u0938\u094D\u0924\u0947 \u6F22\u5B57 \0!";
        expect(
            await client.print(id, `print(${JSON.stringify(text).replace("\\u0000", "\\0")}, end='')`),
        ).toBe(text);
        expect(await client.print(id, "print('a\\udc00b\\ud83d')")).toBe("a\uFFFDb\uFFFD\n");
    });

    it("bring the text of a program that fell silent, in the middle of a line", async () => {
        // The first text leaves at once as nothing came before it; what follows has to wait.
        await submit(
            "silent",
            "import time\nfor part in 'one', 'two', 'three': print(part, end=' ')\ntime.sleep(1e6)",
        );
        await printed("silent", "one two three");
        expect(client.events.some(isResponse("silent"))).toBe(false);
        await client.request(`/yvm/${id}/interrupt`, { requestID: "stop" });
        const { data } = await client.event(isResponse("silent"));
        expect(data).toHaveProperty("error.status", 3);
    });

    it("echo the command and wrap what it prints, as it asked", async () => {
        const { texts } = await client.eval(id, "import numpy\nprint(numpy.arange(12))", {
            runOptions: { ...ownStreams, outSinkTraits: { useEcho: true }, commandWindowColSize: 20 },
        });
        expect(joined(texts, 0)).toBe(
            ">>> import numpy\n... print(numpy.arange(12))\n[ 0  1  2  3  4  5\n  6  7  8  9 10 11]\n",
        );
    });

    it("are copied once to the diary and to the log, as they ask", async () => {
        await client.eval(id, "import sys\nprint('kept \u{1F600}')\nprint('logged', file=sys.stderr)", {
            runOptions: {
                ...ownStreams,
                outSinkTraits: { useDiary: true },
                errSinkTraits: { useLogging: true },
            },
        });
        expect((await readdir(folder)).sort()).toEqual(["yvm-diary.txt", "yvm-log.txt"]);
        expect(await readFile(join(folder, "yvm-diary.txt"), "utf8")).toBe("kept \u{1F600}\n");
        expect(await readFile(join(folder, "yvm-log.txt"), "utf8")).toMatch(/^[-\d]+T[:.\d]+Z logged\n$/);
    });
});

describe("the console of the server", () => {
    it("has what a command prints that nobody reads", async () => {
        const unread = await ServerProcess.start();
        const visitor = await StockClient.attached(unread, "visitor");
        for (const { command } of kinds) {
            const { response, texts } = await visitor.eval("visitor", command, { runOptions: {} });
            expect(response).not.toHaveProperty("error");
            expect(texts).toEqual([]);
        }
        await visitor.disconnect();
        const { code, stdout, stderr } = await unread.stop();
        expect(code).toBe(0);
        for (const { name, stream, text } of kinds) {
            expect.soft([stdout, stderr][stream], name).toContain(text);
        }
    });
});

/** Makes a client the reader of the client-wide streams; without traits, the one that reads them no more. */
async function install(of: StockClient, name: string, traits: Data | null = {}): Promise<void> {
    const requestID = `sinks-${String(traits === null)}`;
    const response = await of.request(`/yvm/${name}/yvmSinks`, {
        requestID,
        outSinkTraits: traits,
        errSinkTraits: traits,
    });
    expect(response).toEqual({ requestID });
}

describe.each([
    ["batched", []],
    ["unbatched", ["--feature", "YVMJS_SmartBuf=off"]],
])("client-wide streams, %s", (_, options) => {
    let own: ServerProcess;
    let reader: StockClient;

    beforeAll(async () => {
        own = await ServerProcess.start(...options);
        reader = await StockClient.attached(own, "reader");
        await install(reader, "reader");
    });

    afterAll(async () => {
        await reader.disconnect();
        expect((await own.stop()).code).toBe(0);
    });

    /** Runs a command, with the client-wide streams for its own, and returns what came on them. */
    async function run(command: string): Promise<Event[]> {
        reader.events.length = 0;
        const { response } = await reader.eval("reader", command, { runOptions: {} });
        expect(response).not.toHaveProperty("error");
        await reader.eval("reader", "import sys\nprint('end')\nprint('end', file=sys.stderr)", {
            runOptions: {},
        });
        const texts = () => reader.events.filter(({ channel }) => channel === "/yvm/reader/yvmSinks/output");
        await reader.event(() => marked(texts()).endsWith("[1]end\n"));
        return texts();
    }

    it.each(kinds)("carry what a command prints by $name", async ({ command, stream, text, isPart }) => {
        const data = (await run(command)).map((event) => event.data);
        const { [stream]: printed, [1 - stream]: other } = [joined(data, 0), joined(data, 1)];
        expect(printed).toEqual(isPart ? expect.stringContaining(text) : `${text}end\n`);
        expect(other).toBe("end\n");
    });

    it("keep the order of both streams", async () => {
        const lines = Array.from({ length: 50 }, (_, i) => `[0]${String(i)}\n[1]${String(-i)}\n`).join("");
        const events = await run("import sys\nfor i in range(50): print(i); print(-i, file=sys.stderr)");
        expect(marked(events)).toBe(`${lines}[0]end\n[1]end\n`);
    });

    it("carry characters whole, however much is printed and wherever it is cut", async () => {
        const events = await run("for _ in range(300): print('\u{1F600}' * 333, end='')");
        for (const { data } of events) {
            expect(String(data["text"])).not.toContain("\uFFFD");
        }
        expect(
            joined(
                events.map((event) => event.data),
                0,
            ),
        ).toBe(`${"\u{1F600}".repeat(99_900)}end\n`);
    });

    it("carry nothing of a command with streams of its own", async () => {
        const { texts } = await reader.eval("reader", "print('own')");
        expect(joined(texts, 0)).toBe("own\n");
        expect(
            joined(
                (await run("")).map((event) => event.data),
                0,
            ),
        ).toBe("end\n");
    });

    it("are those of the client that asked last, until it reverts", async () => {
        const rival = await StockClient.attached(own, "rival");
        await install(rival, "rival");
        await rival.eval("rival", "print('for the rival')", { runOptions: {} });
        await rival.event(({ data }) => data["text"] === "for the rival\n");
        // A revert puts back what was there before the first install of that client.
        await install(rival, "rival", null);
        expect(
            joined(
                (await run("print('for the reader')")).map((event) => event.data),
                0,
            ),
        ).toBe("for the reader\nend\n");
        const texts = rival.events.filter(({ channel }) => channel.endsWith("/yvmSinks/output"));
        expect(texts.map(({ data }) => data["text"])).toEqual(["for the rival\n"]);
        await rival.disconnect();
    });
});

it("copies client-wide text to the diary once, and prints to the console again after a revert", async () => {
    const there = await mkdtemp(join(tmpdir(), "diary-"));
    const own = await ServerProcess.start("--cwd", there);
    const reader = await StockClient.attached(own, "reader");
    await install(reader, "reader", { useDiary: true });
    await reader.eval("reader", "print('read', flush=True)", { runOptions: {} });
    await reader.event(({ data }) => data["text"] === "read\n");
    await install(reader, "reader", null);
    await reader.eval("reader", "print('not read')", { runOptions: {} });
    expect(await readFile(join(there, "yvm-diary.txt"), "utf8")).toBe("read\n");
    await reader.disconnect();
    const { code, stdout } = await own.stop();
    expect(code).toBe(0);
    expect(stdout).toMatch(/\nnot read\n/);
    expect(stdout).not.toMatch(/\nread\n/);
    await rm(there, { recursive: true });
});
