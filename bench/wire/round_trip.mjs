// The round trip of an eval of `1+1`, one after the other, over one WebSocket: yvm-connector, with attach,
// Bayeux and the text that the value is displayed as, beside a bare server that evaluates with embedded CPython
// and does nothing else. Both run at once and are asked in turns, so that neither has the machine to itself at a
// better time. Then the rate of evals that are sent without waiting.
//
//   YVM_BUILD_DIR=build/bench node bench/wire/round_trip.mjs

import { spawn } from "node:child_process";
import { createInterface } from "node:readline";
import WebSocket from "ws";

const build = process.env.YVM_BUILD_DIR ?? "build/bench";
const rounds = 40;
const evalsPerRound = 250;
const warmUp = 500;
const pipelined = 20_000;

/** Starts a program and gives what its first line says behind "listening on ". */
async function start(program, ...args) {
    const process = spawn(program, args, { stdio: ["ignore", "pipe", "inherit"] });
    for await (const line of createInterface({ input: process.stdout })) {
        const address = /listening on (\S+)/.exec(line)?.[1];
        if (address !== undefined) {
            process.stdout.resume();
            return { process, address };
        }
    }
    throw new Error(`${program} ended before it listened`);
}

function open(url) {
    return new Promise((resolve, reject) => {
        const socket = new WebSocket(url, { perMessageDeflate: false });
        socket.once("open", () => resolve(socket));
        socket.once("error", reject);
    });
}

async function bareClient(address) {
    const socket = await open(`ws://127.0.0.1:${address}/`);
    let answered;
    socket.on("message", (data) => answered(data.toString()));
    return {
        roundTrip() {
            return new Promise((resolve) => {
                answered = resolve;
                socket.send("1+1");
            });
        },
        close: () => socket.close(),
    };
}

/** A client that speaks the protocol by hand, so that no client library is measured. */
async function yvmClient(address) {
    const url = new URL(address);
    const socket = await open(`ws://${url.host}/bayeux${url.search}`);
    const replies = new Map();
    let onEvent = () => {};
    let lastId = 0;
    socket.on("message", (data) => {
        for (const message of JSON.parse(data)) {
            if (message.id === undefined) {
                onEvent(message);
            } else {
                replies.get(message.id)?.(message);
                replies.delete(message.id);
            }
        }
    });
    const send = (message) => {
        message.id = String(++lastId);
        socket.send(JSON.stringify([message]));
        return message.id;
    };
    const call = (message) =>
        new Promise((resolve, reject) => {
            replies.set(send(message), (reply) =>
                reply.successful ? resolve(reply) : reject(new Error(reply.error)),
            );
        });
    const { clientId } = await call({
        channel: "/meta/handshake",
        version: "1.0",
        supportedConnectionTypes: ["websocket"],
    });
    const connect = (advice) => ({ channel: "/meta/connect", clientId, connectionType: "websocket", ...advice });
    await call(connect({ advice: { timeout: 0 } }));
    const stayConnected = () => call(connect()).then(stayConnected, () => {});
    void stayConnected();

    const requestID = `bench${String(process.pid)}`;
    await call({ channel: "/meta/subscribe", clientId, subscription: "/yvm/attach/response" });
    const attached = new Promise((resolve) => {
        onEvent = resolve;
    });
    await call({
        channel: "/yvm/attach/request",
        clientId,
        data: { requestID, yvmID: "user-yvm", supportedApiVersions: ["r24a0"] },
    });
    const { channelPrefix } = (await attached).data;
    await call({ channel: "/meta/subscribe", clientId, subscription: `${channelPrefix}/**` });
    const evalChannel = `${channelPrefix}/eval/request`;
    const responseChannel = `${channelPrefix}/eval/response`;
    let evals = 0;
    const sendEval = () =>
        send({
            channel: evalChannel,
            clientId,
            data: {
                requestID: String(++evals),
                command: "1+1",
                runOptions: { useNullOutSink: false, useNullErrSink: false },
            },
        });
    const failOn = (response) => {
        if (response.data.error !== undefined) {
            throw new Error(response.data.error.message);
        }
    };
    return {
        roundTrip() {
            return new Promise((resolve) => {
                let text = "";
                onEvent = (event) => {
                    if (event.channel === responseChannel) {
                        failOn(event);
                        resolve(text);
                    } else {
                        text += event.data.text;
                    }
                };
                sendEval();
            });
        },
        /** Evals a second, when `count` are sent at once. */
        async rate(count) {
            const begin = process.hrtime.bigint();
            await new Promise((resolve) => {
                let left = count;
                onEvent = (event) => {
                    if (event.channel === responseChannel) {
                        failOn(event);
                        if (--left === 0) {
                            resolve();
                        }
                    }
                };
                for (let i = 0; i < count; ++i) {
                    sendEval();
                }
            });
            return count / (Number(process.hrtime.bigint() - begin) / 1e9);
        },
        close: () => socket.close(),
    };
}

async function measure(client, expected, count, microseconds) {
    for (let i = 0; i < count; ++i) {
        const begin = process.hrtime.bigint();
        const answer = await client.roundTrip();
        microseconds.push(Number(process.hrtime.bigint() - begin) / 1000);
        if (answer !== expected) {
            throw new Error(`answered ${JSON.stringify(answer)} instead of ${JSON.stringify(expected)}`);
        }
    }
}

function quantile(sorted, q) {
    return sorted[Math.min(sorted.length - 1, Math.floor(sorted.length * q))];
}

const bareServer = await start(`${build}/bench/bare_server`);
const connector = await start(`${build}/bin/yvm-connector`, "--port", "0");
try {
    const bare = { name: "bare server", client: await bareClient(bareServer.address), expected: "2", times: [] };
    const ours = { name: "yvm-connector", client: await yvmClient(connector.address), expected: "2\n", times: [] };
    for (const side of [bare, ours]) {
        await measure(side.client, side.expected, warmUp, []);
    }
    for (let round = 0; round < rounds; ++round) {
        for (const side of round % 2 === 0 ? [bare, ours] : [ours, bare]) {
            await measure(side.client, side.expected, evalsPerRound, side.times);
        }
    }
    for (const side of [bare, ours]) {
        side.times.sort((a, b) => a - b);
        side.p50 = quantile(side.times, 0.5);
        side.p99 = quantile(side.times, 0.99);
        console.log(
            `eval round trip of 1+1, ${side.name}: p50 ${side.p50.toFixed(0)} us, p99 ${side.p99.toFixed(0)} us, ` +
                `${String(side.times.length)} evals`,
        );
    }
    console.log(`yvm-connector to bare server, p50: ${(ours.p50 / bare.p50).toFixed(2)} times (goal: at most 2.5)`);
    console.log(`yvm-connector, p99 to p50: ${(ours.p99 / ours.p50).toFixed(2)} times (goal: below 5)`);
    const rate = await ours.client.rate(pipelined);
    console.log(`yvm-connector, ${String(pipelined)} evals in a pipeline: ${rate.toFixed(0)} a second (goal: 25000)`);
    bare.client.close();
    ours.client.close();
} finally {
    bareServer.process.kill();
    connector.process.kill();
}
