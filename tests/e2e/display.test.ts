import { afterAll, beforeAll, beforeEach, describe, expect, it } from "vitest";

import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** Displayed values, figures, progress and the workspace, as a client reads them. */

const VALUE = "ylutil::io::StructuredOutputEvent";

interface Bundle {
    data: Record<string, string>;
    metadata: Record<string, Data>;
}

let server: ServerProcess;
let client: StockClient;
let id: string;
let clientCount = 0;

beforeAll(async () => {
    server = await ServerProcess.start();
});

afterAll(async () => {
    await server.stop();
});

beforeEach(async () => {
    id = `display-${String(++clientCount)}`;
    client = await StockClient.attached(server, id);
    return () => client.disconnect();
});

async function subscribe(eventName: string): Promise<void> {
    const answer = await client.request(`/yvm/${id}/subscribeEvent`, { requestID: "watch", eventName });
    expect(answer["error"]).toBeUndefined();
}

/** Runs a command, and returns what came on the way to its response: text, and the data of events. */
async function run(command: string, runOptions: Data = {}): Promise<unknown[]> {
    const begin = client.events.length;
    const { response } = await client.eval(id, command, {
        runOptions: { useNullOutSink: false, useNullErrSink: false, ...runOptions },
    });
    expect(response["error"]).toBeUndefined();
    const end = client.events.findIndex(({ data }) => data === response);
    const items = client.events
        .slice(begin, end)
        .flatMap(({ data }) => data["eventData"] ?? data["text"] ?? []);
    // In how many pieces a text comes is the engine's affair.
    return items.reduce<unknown[]>((joined, item) => {
        const last = joined.at(-1);
        return typeof last === "string" && typeof item === "string"
            ? [...joined.slice(0, -1), last + item]
            : [...joined, item];
    }, []);
}

/** Runs a command that takes its values by an event connection of its own. */
function take(command: string): Promise<unknown[]> {
    return run(command, { eventConnections: { [`own-${id}`]: VALUE } });
}

function bundle(item: unknown): Bundle {
    return item as Bundle;
}

describe("displayed values", () => {
    it("come as text, and behind it as an event", async () => {
        await subscribe(VALUE);
        expect(await run("print('before')\n[1, 2]")).toEqual([
            "before\n[1, 2]\n",
            { data: { "text/plain": "[1, 2]" }, metadata: {} },
        ]);
    });

    it("come once to a command that takes them by a connection of its own, among its text", async () => {
        expect(await take("import yvm\nprint('a', end='')\nyvm.display(1)\nprint('b')\n2")).toEqual([
            "a",
            { data: { "text/plain": "1" }, metadata: {} },
            "b\n",
            { data: { "text/plain": "2" }, metadata: {} },
        ]);
    });

    it("of pandas are tables", async () => {
        const [table] = await take("import pandas\npandas.DataFrame({'a': [1, 2], 'b': ['<', '\u{1F600}']})");
        expect(bundle(table).data["text/html"]).toContain("<td>&lt;</td>");
        expect(bundle(table).data["text/html"]).toContain("<td>\u{1F600}</td>");
        expect(bundle(table).data["text/plain"]).toBe("   a  b\n0  1  <\n1  2  \u{1F600}");
    });
});

describe("figures", () => {
    const width = (png: string | undefined) => Buffer.from(png ?? "", "base64").readUInt32BE(16);

    it("need no window and no call, and come before the response", async () => {
        const items = await take("import matplotlib.pyplot as plt\nplt.plot([1, 2])\nprint('text', end='');");
        expect(items).toHaveLength(2);
        expect(items[0]).toBe("text");
        expect(bundle(items[1]).metadata).toEqual({ "image/png": { width: 640, height: 480 } });
        expect(bundle(items[1]).data["text/plain"]).toBe("<Figure size 640x480 with 1 Axes>");
        expect(width(bundle(items[1]).data["image/png"])).toBe(640);
    });

    it("go to the command that drew them, and to nobody else", async () => {
        await take("plt.plot([1]);");
        const other = await StockClient.attached(server, `${id}-other`);
        await other.eval(`${id}-other`, "plt.plot([2]);");
        expect(client.events.filter(({ data }) => data["eventData"] !== undefined)).toHaveLength(1);
        expect(other.events.filter(({ data }) => data["eventData"] !== undefined)).toHaveLength(0);
        await other.disconnect();
    });

    it("that were closed come again when a later command plots into them, and take in nothing else", async () => {
        await subscribe(VALUE);
        const widths = async (command: string) =>
            (await run(command)).map((item) => width(bundle(item).data["image/png"]));
        await run("import matplotlib.pyplot as plt\nfigure, axes = plt.subplots(figsize=(2, 1))");
        expect(await widths("plt.sca(axes); plt.plot([2, 1]);")).toEqual([200]);
        expect(await widths("plt.plot([1]);")).toEqual([640]);
    });

    it("come as SVG on demand", async () => {
        const [figure] = await take("import yvm\nyvm.figure_format('svg')\nplt.plot([1]);");
        await run("yvm.figure_format('png');");
        expect(bundle(figure).data["image/svg+xml"]).toContain("<svg");
        expect(bundle(figure).metadata).toEqual({ "image/svg+xml": { width: 640, height: 480 } });
    });

    it("are refused to a command without the capability", async () => {
        const { response } = await client.eval(id, "plt.plot([1])", { runOptions: { capabilitiesList: [] } });
        expect(response["error"]).toMatchObject({
            message: 'the command may not draw figures: its run options give it no "figures"',
        });
    });
});

it("a loop tells its progress", async () => {
    await subscribe("yvm::ProgressEvent");
    const items = (await run("import yvm\nfor i in yvm.progress('ab', 'letters'): pass")) as Data[];
    // On a slow machine there are others between them.
    const [first, last] = [items.at(0), items.at(-1)];
    const begin = { label: "letters", done: 0, total: 2, rate: null, remaining: null, finished: false };
    expect(first).toMatchObject(begin);
    expect(last).toMatchObject({ label: "letters", done: 2, total: 2, remaining: 0, finished: true });
    expect(last?.["id"]).toBe(first?.["id"]);
});

it("a command tells which names it changed", async () => {
    await subscribe("yvm::WorkspaceEvent");
    await run("fresh = 1; stays = 2; goes = 3");
    expect(await run("fresh = [1]; del goes; born = 0")).toEqual([
        { appeared: ["born"], changed: ["fresh"], gone: ["goes"] },
    ]);
    expect(await run("stays")).toEqual(["2\n"]);
});
