import { readFileSync, readdirSync } from "node:fs";

import { afterAll, beforeAll, expect, it, onTestFailed } from "vitest";

import { scrape } from "./scrape.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient } from "./StockClient.js";
import { Ended, PollingVisitor, SocketVisitor, type Visitor } from "./Visitor.js";

/** Sessions that vanish at any moment and in any manner leave nothing behind. */

const sessionsOfARound = 500;
const atOnce = 25;
const graceSeconds = 1;

/** Of a command that ends when its session does, and not before. */
const endless = "while True: pass";

let server: ServerProcess;
let observer: StockClient;
let lastId = 0;

beforeAll(async () => {
    server = await ServerProcess.start("--grace-time", String(graceSeconds), "--connect-timeout", "1");
    observer = await StockClient.attached(server, "observer");
});

afterAll(async () => {
    await observer.disconnect();
    expect((await server.stop()).code).toBe(0);
});

/** A stream of numbers in [0, 1) that is the same for the same seed. */
function randomFrom(seed: number): () => number {
    let state = seed;
    return () => {
        state = (state + 0x6d2b79f5) | 0;
        let mixed = Math.imul(state ^ (state >>> 15), 1 | state);
        mixed = (mixed + Math.imul(mixed ^ (mixed >>> 7), 61 | mixed)) ^ mixed;
        return ((mixed ^ (mixed >>> 14)) >>> 0) / 2 ** 32;
    };
}

function oneOf<T>(random: () => number, choices: readonly T[]): T {
    const choice = choices[Math.floor(random() * choices.length)];
    if (choice === undefined) {
        throw new Error("there is nothing to choose from");
    }
    return choice;
}

/** What the server has of sessions now. */
async function gauges(): Promise<Record<string, number>> {
    const valueOf = await scrape(server);
    const names = ["sessions", "clients", "subscriptions", "commands_in_flight"];
    return Object.fromEntries(names.map((name) => [name, valueOf(name)]));
}

async function sessionsEnded(): Promise<number> {
    return (await scrape(server))("sessions_ended_total");
}

function residentKilobytes(): number {
    const status = readFileSync(`/proc/${String(server.pid)}/status`, "utf8");
    return Number(/^VmRSS:\s+(\d+) kB$/m.exec(status)?.[1]);
}

function openFiles(): number {
    return readdirSync(`/proc/${String(server.pid)}/fd`).length;
}

/** The life of a session, one step after the other. */
function life(visitor: Visitor, id: string, command: string): (() => Promise<unknown> | undefined)[] {
    const prefix = `/yvm/${id}`;
    const runOptions = { useNullOutSink: false };
    return [
        () => visitor.handshake(server.token),
        () => {
            visitor.connect();
            return undefined;
        },
        () =>
            visitor.ask("/meta/subscribe", {
                subscription: ["/yvm/attach/response", "/yvm/detach/response"],
            }),
        () =>
            visitor.request("/yvm/attach", {
                requestID: id,
                yvmID: "user-yvm",
                supportedApiVersions: ["r24a0"],
            }),
        () => visitor.ask("/meta/subscribe", { subscription: `${prefix}/**` }),
        () =>
            command === endless
                ? visitor.ask(`${prefix}/eval/request`, { data: { requestID: "1", command, runOptions } })
                : visitor.request(`${prefix}/eval`, { requestID: "1", command, runOptions }),
        () => visitor.ask(`${prefix}/eval/request`, { data: { requestID: "2", command, runOptions } }),
        () => visitor.request("/yvm/detach", { requestID: `bye-${id}`, requestIDtoDetach: id }),
    ];
}

/** Lets one session begin, and vanish; returns how to end what is left of it on this side, if anything. */
async function visit(seed: number): Promise<() => void> {
    lastId += 1;
    // Its own, so that it is the same again whatever the others do meanwhile.
    const random = randomFrom(seed + lastId);
    const id = `visitor-${String(lastId)}`;
    const visitor =
        random() < 0.5 ? await SocketVisitor.open(server.endpoint) : new PollingVisitor(server.endpoint);
    const command =
        random() < 0.004
            ? endless
            : oneOf(random, ["1+1", "print('x' * 10_000)", "import time; time.sleep(0.002)", "1/0"]);
    const steps = life(visitor, id, command);
    const last = Math.floor(random() * (steps.length + 1));
    const leave = oneOf(random, ["destroy", "close", "disconnect", "stay", "break off"] as const);
    try {
        for (const step of steps.slice(0, last)) {
            await step();
        }
        // Half of them do not wait for the end of what they do last.
        if (random() < 0.5) {
            void steps[last]?.()?.catch((error: unknown) => {
                expect(error).toBeInstanceOf(Ended);
            });
        }
        if (leave === "disconnect" && visitor.clientId !== undefined) {
            await visitor.ask("/meta/disconnect", {});
        }
    } catch (error) {
        // The server may end a session that waits longer than its grace time.
        expect(error).toBeInstanceOf(Ended);
    }
    if (leave === "stay") {
        visitor.fallSilent();
        return () => {
            visitor.destroy();
        };
    }
    if (leave === "break off" && visitor instanceof PollingVisitor) {
        visitor.breakOff();
    } else if (leave === "close") {
        visitor.close();
    } else {
        visitor.destroy();
    }
    return () => undefined;
}

/** A round of visits, until nothing of them is left. */
async function round(seed: number): Promise<void> {
    const idle = await gauges();
    const leftovers: (() => void)[] = [];
    let begun = 0;
    await Promise.all(
        Array.from({ length: atOnce }, async () => {
            while (begun < sessionsOfARound) {
                begun += 1;
                leftovers.push(await visit(seed));
            }
        }),
    );
    // With those that only fell silent still connected.
    await expect.poll(gauges, { interval: 100 }).toEqual(idle);
    for (const end of leftovers) {
        end();
    }
    // The engine has nothing of them either: it runs the question itself.
    expect(
        await observer.print("observer", "import yvm; s = yvm.state(); (len(s['running']), s['waiting'])"),
    ).toBe("(1, 0)\n");
}

it("five hundred of them, three times, leave no session, no client, no subscription, no file and no memory", async () => {
    const seed = Number(process.env["YVM_SEED"] ?? Date.now() % 1_000_000);
    onTestFailed(() => {
        console.error(`to repeat it: YVM_SEED=${String(seed)}`);
    });
    const files = openFiles();
    await round(seed);
    const kilobytes = residentKilobytes();
    const ended = await sessionsEnded();
    await round(seed);
    await round(seed);
    // One in nine leaves before it has shaken hands.
    expect(await sessionsEnded()).toBeGreaterThan(ended + 1.5 * sessionsOfARound);
    await expect.poll(openFiles).toBeLessThanOrEqual(files);
    expect(residentKilobytes() - kilobytes).toBeLessThan(8 * 1024);
    expect(await observer.print("observer", "1+1")).toBe("2\n");
}, 300_000);
