import { expect, it } from "vitest";

import { Gate } from "./Gate.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** Clients of both versions at work on one engine at the same time. */

const apiVersions = ["r24a0", "r22a0"] as const;
const clientsOfEachVersion = 6;
const rounds = 40;
const sharedText = "/yvm/sinks/response";

interface Worker {
    readonly id: string;
    readonly apiVersion: (typeof apiVersions)[number];
    readonly stock: StockClient;
}

async function attach(server: ServerProcess): Promise<Worker[]> {
    const workers: Worker[] = [];
    const attachAs = async (stock: StockClient, apiVersion: Worker["apiVersion"]) => {
        const id = `${apiVersion}-${String(workers.length)}`;
        await stock.attachAs(id, apiVersion);
        workers.push({ id, apiVersion, stock });
    };
    const begin = async () => {
        const stock = new StockClient(server);
        await stock.begin();
        return stock;
    };
    for (let n = 1; n < clientsOfEachVersion; ++n) {
        for (const apiVersion of apiVersions) {
            await attachAs(await begin(), apiVersion);
        }
    }
    // And a session with one of each.
    const both = await begin();
    for (const apiVersion of apiVersions) {
        await attachAs(both, apiVersion);
    }
    return workers;
}

/** What a client asks for in one round; every text that it causes tells whose it is. */
async function work({ id, apiVersion, stock }: Worker, round: number): Promise<void> {
    const mark = `${id} ${String(round)}`;
    const ask = (channel: string, kind: string, keys: Data) =>
        stock.request(`/yvm/${id}/${channel}`, { requestID: `${kind} ${mark}`, ...keys });
    const argument = (value: unknown) => (apiVersion === "r24a0" ? JSON.stringify(value) : value);
    const [own, shared, result, query, failed] = await Promise.all([
        ask("eval", "own", {
            command: `for n in range(20): print('own', '${mark}', n)`,
            runOptions: { useNullOutSink: false },
        }),
        ask("eval", "shared", { command: `print('shared', '${mark}')` }),
        ask("feval", "result", {
            function: "str.upper",
            numOutputsExpected: 1,
            rhsArgs: [argument(mark)],
        }),
        ask("feval", "query", {
            function: "max",
            numOutputsExpected: 1,
            rhsArgs: [argument([round, -1])],
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        }),
        ask("eval", "failed", { command: `raise KeyError('${mark}')` }),
    ]);
    expect(own).toEqual({ requestID: `own ${mark}` });
    expect(shared).toEqual({ requestID: `shared ${mark}` });
    expect(result).toEqual({ requestID: `result ${mark}`, result: [mark.toUpperCase()] });
    expect(query).toEqual({ requestID: `query ${mark}`, result: [round] });
    expect(failed["error"]).toMatchObject({ identifier: "KeyError", message: `'${mark}'` });
}

it("answers and text reach whom they belong to, but for the sinks that clients of r22a0 share", async () => {
    const server = await ServerProcess.start();
    const workers = await attach(server);
    const sessions = [...new Set(workers.map(({ stock }) => stock))];
    const ofOlder = workers.filter(({ apiVersion }) => apiVersion === "r22a0");
    for (const { stock } of ofOlder) {
        expect((await stock.subscribe(sharedText)).successful).toBe(true);
    }
    expect((await ofOlder[0]?.stock.publish("/yvm/sinks/set", {}))?.successful).toBe(true);
    // Behind this in the same order; from then on the text is theirs.
    await ofOlder[0]?.stock.print(ofOlder[0].id, "print()");

    await Promise.all(
        workers.map(async (worker) => {
            for (let round = 0; round < rounds; round += 4) {
                await Promise.all([0, 1, 2, 3].map((n) => work(worker, round + n)));
            }
        }),
    );

    for (const { id, apiVersion, stock } of workers) {
        const channels = apiVersion === "r24a0" ? ["/text/output"] : ["/output"];
        const own = stock.events.filter(({ channel }) => channel.startsWith(`/yvm/${id}/`));
        const texts = own.filter(({ data }) => "text" in data);
        expect([...new Set(texts.map(({ channel }) => channel))]).toEqual(
            channels.map((channel) => `/yvm/${id}${channel}`),
        );
        for (let round = 0; round < rounds; ++round) {
            const mark = `${id} ${String(round)}`;
            const text = texts
                .filter(({ data }) => data["requestID"] === `own ${mark}`)
                .map(({ data }) => data["text"] as string);
            expect(text.join("")).toBe(
                Array.from({ length: 20 }, (_, n) => `own ${mark} ${String(n)}\n`).join(""),
            );
        }
        // Each request was answered once, on the channel of its client.
        const answered = own.filter(({ channel }) => channel.endsWith("val/response"));
        expect(new Set(answered.map(({ data }) => data["requestID"])).size).toBe(answered.length);
        const warmUp = id === ofOlder[0]?.id ? 1 : 0;
        expect(answered).toHaveLength(5 * rounds + warmUp);
    }

    const lines = (stock: StockClient) =>
        stock.events
            .filter(({ channel }) => channel === sharedText)
            .map(({ data }) => data["text"] as string)
            .join("")
            .split("\n")
            .slice(0, -1);
    const wanted = workers.flatMap(({ id }) =>
        Array.from({ length: rounds }, (_, round) => `shared ${id} ${String(round)}`),
    );
    const readers = [...new Set(ofOlder.map(({ stock }) => stock))];
    for (const reader of readers) {
        // The text of another session's command may come behind the answer there.
        await reader.event(() => lines(reader).length >= wanted.length);
    }
    const [order = [], ...others] = readers.map(lines);
    expect([...order].sort()).toEqual([...wanted].sort());
    for (const other of others) {
        expect(other).toEqual(order);
    }
    for (const stock of sessions) {
        const prefixes = workers.filter((worker) => worker.stock === stock).map(({ id }) => `/yvm/${id}/`);
        const foreign = stock.events.filter(
            ({ channel }) =>
                !prefixes.some((prefix) => channel.startsWith(prefix)) &&
                !["/yvm/attach/response", "/yvm/detach/response"].includes(channel) &&
                !(channel === sharedText && readers.includes(stock)),
        );
        expect(foreign).toEqual([]);
        expect((await stock.driver.traffic()).complaints).toEqual([]);
    }
    await Promise.all(sessions.map((stock) => stock.disconnect()));
    expect((await server.stop()).code).toBe(0);
});

it("a group cancel and an interrupt of a client of r24a0 reach the commands of those of r22a0", async () => {
    const server = await ServerProcess.start();
    const stock = new StockClient(server);
    await stock.begin();
    await stock.attachAs("older", "r22a0");
    await stock.attachAs("newer", "r24a0");
    const gate = new Gate();
    const running = stock.request("/yvm/older/eval", {
        requestID: "running",
        command: `${gate.python}.read()\nwhile True: pass`,
    });
    const waiting = ["plots", "other"].map((group) =>
        stock.request("/yvm/older/feval", {
            requestID: group,
            function: "abs",
            numOutputsExpected: 1,
            rhsArgs: [-1],
            runOptions: { groupNames: [group] },
        }),
    );
    await gate.open();
    await stock.request("/yvm/newer/cancelGroup", { requestID: "c", requestGroupNametoCancel: "plots" });
    expect((await waiting[0])?.["error"]).toMatchObject({ status: 3 });
    await stock.request("/yvm/newer/interrupt", { requestID: "i" });
    expect((await running)["error"]).toMatchObject({ status: 3 });
    expect(await waiting[1]).toEqual({ requestID: "other", result: [1] });
    gate.remove();
    await stock.disconnect();
    expect((await server.stop()).code).toBe(0);
});
