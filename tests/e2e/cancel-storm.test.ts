import { expect, it } from "vitest";

import type { Message, Publication } from "./Driver.js";
import { RawSocket } from "./RawSocket.js";
import { scrape } from "./scrape.js";
import { ServerProcess } from "./ServerProcess.js";
import type { Data } from "./StockClient.js";

/** Cancels against a queue that fills and drains at the same time. */

const commandCount = 100_000;
const blockSize = 10_000;
/** The server's limit of messages in one frame. */
const batchSize = 1000;

/** A stream of numbers in [0, 1) that is the same for the same seed. */
function randomFrom(seed: number): () => number {
    let state = seed;
    return () => {
        state = (Math.imul(state, 1_664_525) + 1_013_904_223) >>> 0;
        return state / 2 ** 32;
    };
}

interface Cancel {
    readonly target: string;
    readonly interrupt: boolean;
}

it("answers each of 100,000 commands once, and each cancel by what became of its command", async () => {
    const seed = 20_261_121;
    const random = randomFrom(seed);
    const server = await ServerProcess.start("--max-queue-bytes", String(1024 ** 3));
    // By hand: with so many messages at once the stock library blocks its process until its own time limit for
    // replies is over, and drops the connection.
    const socket = await RawSocket.open(`${server.endpoint}?token=${server.token}`);
    const [handshake] = (await socket.ask(
        JSON.stringify([
            { channel: "/meta/handshake", version: "1.0", supportedConnectionTypes: ["websocket"] },
        ]),
    )) as Message[];
    const sendFrame = (messages: readonly object[]) => {
        const { clientId } = handshake ?? {};
        socket.send(JSON.stringify(messages.map((message) => ({ ...message, clientId }))));
    };
    sendFrame([
        { channel: "/meta/connect", connectionType: "websocket" },
        {
            channel: "/yvm/attach/request",
            data: { requestID: "storm", yvmID: "user-yvm", supportedApiVersions: ["r24a0"] },
        },
        { channel: "/meta/subscribe", subscription: "/yvm/storm/**" },
    ]);

    const answers = new Map<string, Data[]>();
    let received = 0;
    let wake: () => void = () => undefined;
    const read = async () => {
        for (let frame = await socket.next(); typeof frame !== "number"; frame = await socket.next()) {
            for (const { channel, successful, error, data } of frame) {
                if (successful === false) {
                    throw new Error(`${channel} was refused: ${String(error)}`);
                }
                if (successful === undefined && channel.startsWith("/yvm/storm/")) {
                    const answer = data as Data;
                    const requestID = answer["requestID"] as string;
                    answers.set(requestID, [...(answers.get(requestID) ?? []), answer]);
                    received += 1;
                }
            }
            wake();
        }
        throw new Error("the server closed the connection");
    };
    const reading = read();
    const until = async (count: number) => {
        while (received < count) {
            await Promise.race([new Promise<void>((resolve) => (wake = resolve)), reading]);
        }
    };

    const cancels = new Map<string, Cancel>();
    const cancelOf = (target: string, interrupt: boolean): Publication => {
        const requestID = `c${String(cancels.size)}`;
        cancels.set(requestID, { target, interrupt });
        return {
            channel: "/yvm/storm/cancel/request",
            data: { requestID, requestIDtoCancel: target, interrupt },
        };
    };
    const send = (publications: readonly Publication[]) => {
        for (let first = 0; first < publications.length; first += batchSize) {
            sendFrame(publications.slice(first, first + batchSize));
        }
    };

    for (let first = 0; first < commandCount; first += blockSize) {
        // The first of a block runs until it is cancelled, so that cancels find some commands waiting.
        send(
            Array.from({ length: blockSize }, (_, index) => ({
                channel: "/yvm/storm/eval/request",
                data: {
                    requestID: String(first + index),
                    command: index === 0 ? "while True: pass" : "pass",
                },
            })),
        );
        const targets = Array.from({ length: 2000 }, () =>
            cancelOf(String(Math.floor(random() * (first + blockSize))), random() < 0.5),
        );
        const recent = Array.from({ length: 2000 }, () =>
            cancelOf(String(first + Math.floor(random() * blockSize)), random() < 0.5),
        );
        send([...targets, cancelOf(String(first), true), ...recent]);
        // No more than two blocks are under way.
        await until(first - blockSize);
    }
    await until(commandCount + cancels.size);
    // Behind this answer nothing is left on its way.
    send([{ channel: "/yvm/storm/interrupt/request", data: { requestID: "end" } }]);
    await until(commandCount + cancels.size + 1);
    expect(answers.get("end")).toEqual([{ requestID: "end" }]);

    const only = (requestID: string): Data => {
        const [answer, ...more] = answers.get(requestID) ?? [];
        if (!answer || more.length !== 0) {
            throw new Error(`${requestID} was answered ${answer ? more.length + 1 : 0} times, seed ${seed}`);
        }
        return answer;
    };
    const outcomes = new Map<string, string>();
    for (let command = 0; command < commandCount; ++command) {
        const error = only(String(command))["error"] as Data | undefined;
        outcomes.set(String(command), error === undefined ? "ok" : (error["identifier"] as string));
    }
    const counts: Record<string, number> = {};
    const disagreements: unknown[] = [];
    const cancelledBefore = new Set<string>();
    const cancelledWhileRunning = new Set<string>();
    for (const [requestID, { target, interrupt }] of cancels) {
        const status = only(requestID)["cancelStatus"] as string;
        const outcome = outcomes.get(target);
        counts[status] = (counts[status] ?? 0) + 1;
        const agrees =
            status === "CANCEL_BEFORE_RUNNING"
                ? outcome === "yvm:cancelled" && !cancelledBefore.has(target)
                : status === "CANCEL_WHILE_RUNNING"
                  ? outcome === "yvm.Interrupt" && interrupt
                  : status === "UNABLE_TO_CANCEL_OTHER"
                    ? outcome !== "yvm:cancelled" && !interrupt
                    : status === "UNABLE_TO_CANCEL_ALREADY_DONE";
        if (!agrees) {
            disagreements.push({ requestID, target, interrupt, status, outcome });
        }
        if (status === "CANCEL_BEFORE_RUNNING") {
            cancelledBefore.add(target);
        } else if (status === "CANCEL_WHILE_RUNNING") {
            cancelledWhileRunning.add(target);
        }
    }
    expect(disagreements).toEqual([]);
    const neverRun = [...outcomes].filter(([, outcome]) => outcome === "yvm:cancelled");
    expect(neverRun).toHaveLength(cancelledBefore.size);
    const interrupted = [...outcomes].filter(([, outcome]) => outcome === "yvm.Interrupt");
    expect(interrupted).toHaveLength(cancelledWhileRunning.size); // nothing else stops a command here
    expect(counts["CANCEL_BEFORE_RUNNING"]).toBeGreaterThan(0);
    expect(counts["CANCEL_WHILE_RUNNING"]).toBeGreaterThan(0);
    expect(counts["UNABLE_TO_CANCEL_ALREADY_DONE"]).toBeGreaterThan(0);
    await expect.poll(async () => (await scrape(server))("commands_in_flight")).toBe(0);
    socket.destroy();
    await expect(reading).rejects.toThrow("the server closed the connection");
    expect((await server.stop()).code).toBe(0);
});
