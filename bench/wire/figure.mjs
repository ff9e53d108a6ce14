// A figure on its way into a page: from the last line of the command that drew it to the image decoded in Chromium.
// Both clients live in pages of their servers, speak by hand over a WebSocket, and take the time on the page's clock,
// as Python takes it on the machine's; both tell the same time, as everything runs on one machine.

/* global Blob, Image, location, TextDecoder, TextEncoder, WebSocket -- of the pages */

import { chromium } from "playwright-core";

import { median, quantile, row } from "./report.mjs";

const setUp = `
import io, time
import matplotlib.pyplot as plt
import numpy as np
x = np.linspace(0, 10, 400)
def draw():
    plt.figure(figsize=(6.4, 4.8), dpi=100)
    plt.plot(x, np.sin(x))
    plt.plot(x, np.cos(x))
draw()
file = io.BytesIO()
plt.savefig(file, format="png", dpi=100)
plt.close("all")
class Ready:
    def _repr_png_(self): return file.getvalue()
ready = Ready()
`;
const time = "print(repr(time.time()))";
/** What the sides run, which prints the time of its end and shows one image. */
const works = {
    "drawn by the command": `draw()\n${time}`,
    "made before, shown only": `${time}\nready`,
};

const size = { width: 640, height: 480 };
const warmUp = 3;
const rounds = 40;

/**
 * Measures both sides in turns.
 *
 * @param inTurns see wire.mjs
 */
export async function measureFigures(inTurns, ours, peer) {
    const browser = await chromium.launch({
        executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
        args: ["--no-sandbox", "--disable-gpu", "--disable-background-networking", "--no-first-run"],
    });
    try {
        // The pages are the servers' own, so that they are let in; what stands on them does not matter.
        const context = await browser.newContext({ bypassCSP: true });
        const [ourPage, peerPage] = [await context.newPage(), await context.newPage()];
        const { origin, searchParams } = new URL(ours.server.address);
        await ourPage.goto(`${origin}/healthz`);
        await ourPage.evaluate(openYvm, searchParams.get("token"));
        await peerPage.goto(`${peer.server.address}api`);
        await peerPage.evaluate(openPeer, await peer.client.channels());
        const sides = [
            { module: ours.module, page: ourPage, before: setUp },
            {
                module: peer.module,
                page: peerPage,
                // Its own default leaves out the figure's margin, and so would send another image.
                before: `%matplotlib inline\n%config InlineBackend.print_figure_kwargs = {'bbox_inches': None}\n${setUp}`,
            },
        ];
        for (const { page, before } of sides) {
            await page.evaluate((command) => globalThis.run(command), before);
        }
        for (const [name, command] of Object.entries(works)) {
            await measureWork(inTurns, sides, name, command);
        }
    } finally {
        await browser.close();
    }
}

async function measureWork(inTurns, sides, name, command) {
    const showOnce = async (side) => {
        await side.page.bringToFront();
        const { milliseconds, width, height, bytes } = await side.page.evaluate(show, command);
        if (width !== size.width || height !== size.height) {
            throw new Error(`${side.module.name} shows ${width} x ${height} pixels`);
        }
        side.times.push(milliseconds);
        side.bytes = bytes;
    };
    const startOver = () => sides.forEach((side) => Object.assign(side, { times: [] }));
    startOver();
    await inTurns(warmUp, sides, showOnce);
    startOver();
    await inTurns(rounds, sides, showOnce);
    const p50 = [];
    for (const { module, times, bytes } of sides) {
        p50.push(median(times));
        row(
            module.name,
            `p50 ${median(times).toFixed(1)} ms`,
            `p99 ${quantile(times, 0.99).toFixed(1)} ms`,
            `${rounds} figures of ${(bytes / 1000).toFixed(0)} kB, ${name}`,
        );
    }
    row("peer to ours, p50", `${(p50[1] / p50[0]).toFixed(2)} times`);
}

/** In the page: runs the command, and waits until its image could be painted. */
async function show(command) {
    const { text, png } = await globalThis.run(command);
    const image = new Image();
    image.src = `data:image/png;base64,${png.replaceAll("\n", "")}`;
    await image.decode();
    const now = performance.timeOrigin + performance.now();
    return {
        milliseconds: now - Number(text) * 1000,
        width: image.naturalWidth,
        height: image.naturalHeight,
        bytes: (png.length * 3) / 4,
    };
}

/** In the page: attaches, and gives it a function `run`, which resolves with the text of a command and its image. */
async function openYvm(token) {
    const socket = new WebSocket(`ws://${location.host}/bayeux?token=${token}`);
    const calls = new Map();
    const runs = new Map();
    let lastId = 0;
    let clientId;
    const call = (message) =>
        new Promise((resolve) => {
            const id = String(++lastId);
            calls.set(id, resolve);
            socket.send(JSON.stringify([{ id, clientId, ...message }]));
        });
    let onAttached;
    const attached = new Promise((resolve) => (onAttached = resolve));
    socket.onmessage = ({ data: frame }) => {
        for (const { id, channel, data, ...reply } of JSON.parse(frame)) {
            if (id !== undefined) {
                calls.get(id)?.(reply);
                calls.delete(id);
            } else if (channel === "/yvm/attach/response") {
                onAttached(data.channelPrefix);
            } else if (channel.endsWith("/text/output")) {
                runs.get(data.requestID).text += data.text;
            } else if (channel.endsWith("/event/fireEvent")) {
                runs.get(data.requestID.slice(1)).png = data.eventData.data["image/png"];
            } else if (channel.endsWith("/eval/response")) {
                const run = runs.get(data.requestID);
                runs.delete(data.requestID);
                data.error ? run.reject(new Error(data.error.message)) : run.resolve(run);
            }
        }
    };
    await new Promise((resolve) => (socket.onopen = resolve));
    ({ clientId } = await call({
        channel: "/meta/handshake",
        version: "1.0",
        supportedConnectionTypes: ["websocket"],
    }));
    const connect = () => call({ channel: "/meta/connect", connectionType: "websocket" }).then(connect);
    void connect();
    await call({ channel: "/meta/subscribe", subscription: "/yvm/attach/response" });
    await call({
        channel: "/yvm/attach/request",
        data: { requestID: "figure", yvmID: "user-yvm", supportedApiVersions: ["r24a0"] },
    });
    const prefix = await attached;
    await call({ channel: "/meta/subscribe", subscription: `${prefix}/**` });
    let lastRun = 0;
    globalThis.run = (command) =>
        new Promise((resolve, reject) => {
            const requestID = String(++lastRun);
            runs.set(requestID, { text: "", png: undefined, resolve, reject });
            void call({
                channel: `${prefix}/eval/request`,
                data: {
                    requestID,
                    command,
                    runOptions: {
                        useNullOutSink: false,
                        eventConnections: { [`e${requestID}`]: "ylutil::io::StructuredOutputEvent" },
                    },
                },
            });
        });
}

/** In the page: the same of the peer, over the subprotocol that its own front end picks. */
async function openPeer({ address, subprotocol }) {
    const socket = new WebSocket(address, [subprotocol]);
    socket.binaryType = "arraybuffer";
    const runs = new Map();
    const decoder = new TextDecoder();
    const encoder = new TextEncoder();
    socket.onmessage = ({ data: frame }) => {
        const view = new DataView(frame);
        const offset = (i) => view.getUint32(8 * (i + 1), true);
        const part = (i) =>
            JSON.parse(decoder.decode(new Uint8Array(frame, offset(i), offset(i + 1) - offset(i))));
        const run = runs.get(part(2).msg_id);
        if (run === undefined) {
            return;
        }
        const type = part(1).msg_type;
        if (type === "stream") {
            run.text += part(4).text;
        } else if (type === "display_data" || type === "execute_result") {
            run.png = part(4).data["image/png"];
        } else if (type === "execute_reply") {
            const content = part(4);
            if (content.status !== "ok") {
                run.reject(new Error(`${content.ename}: ${content.evalue}`));
            }
            run.replied = true;
        }
        // In either order: the kernel sends the reply and its output on two sockets.
        if (run.replied && (run.png !== undefined || !run.wantsImage)) {
            runs.delete(part(2).msg_id);
            run.resolve(run);
        }
    };
    await new Promise((resolve) => (socket.onopen = resolve));
    let lastRun = 0;
    globalThis.run = (code) =>
        new Promise((resolve, reject) => {
            const msg_id = `figure${++lastRun}`;
            // All but the first, which prepares.
            runs.set(msg_id, {
                text: "",
                png: undefined,
                replied: false,
                wantsImage: lastRun > 1,
                resolve,
                reject,
            });
            const header = {
                msg_id,
                msg_type: "execute_request",
                username: "bench",
                session: "figure",
                date: new Date().toISOString(),
                version: "5.3",
            };
            const content = {
                code,
                silent: false,
                store_history: false,
                user_expressions: {},
                allow_stdin: false,
                stop_on_error: false,
            };
            const segments = [
                "shell",
                ...[header, {}, {}, content].map((value) => JSON.stringify(value)),
            ].map((text) => encoder.encode(text));
            const offsets = new DataView(new ArrayBuffer(8 * (segments.length + 2)));
            offsets.setBigUint64(0, BigInt(segments.length + 1), true);
            let end = offsets.byteLength;
            offsets.setBigUint64(8, BigInt(end), true);
            segments.forEach((segment, i) => {
                end += segment.length;
                offsets.setBigUint64(8 * (i + 2), BigInt(end), true);
            });
            socket.send(new Blob([offsets.buffer, ...segments]));
        });
}
