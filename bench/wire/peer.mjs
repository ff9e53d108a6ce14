// The peer: a notebook server with its kernel, as Debian packages them, over the subprotocol that its own front
// end picks (the server hands the kernel's messages on without parsing them).

import { mkdtempSync, rmSync } from "node:fs";
import { createServer } from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath } from "node:url";

import { openSocket } from "./openSocket.mjs";
import { killAtExit, spare, start } from "./processes.mjs";

export const name = "jupyter-server";

const subprotocol = "v1.kernel.websocket.jupyter.org";
const token = "bench";
const headers = { Authorization: `token ${token}`, "Content-Type": "application/json" };

function freePort() {
    return new Promise((resolve, reject) => {
        const server = createServer().once("error", reject);
        server.listen(0, "127.0.0.1", () => {
            const { port } = server.address();
            server.close(() => resolve(port));
        });
    });
}

/** A notebook server that keeps to a folder of its own, without the user's settings. No kernel runs yet. */
export async function startServer() {
    const folder = mkdtempSync(join(tmpdir(), "yvm-bench-"));
    const removeFolder = () => rmSync(folder, { recursive: true, force: true });
    process.once("exit", removeFolder);
    const server = await start(
        "/usr/bin/jupyter-server",
        [
            `--config=${fileURLToPath(new URL("peer_config.py", import.meta.url))}`,
            "--no-browser",
            "--allow-root",
            "--ip=127.0.0.1",
            `--port=${await freePort()}`,
            "--ServerApp.port_retries=0",
            `--ServerApp.token=${token}`,
            `--ServerApp.root_dir=${folder}`,
        ],
        / (http:\/\/127\.0\.0\.1:\d+\/)/,
        {
            stream: "stderr",
            env: {
                PATH: "/usr/bin:/bin",
                LANG: "C.UTF-8",
                HOME: folder,
                IPYTHONDIR: join(folder, "ipython"),
                JUPYTER_CONFIG_DIR: join(folder, "config"),
                JUPYTER_DATA_DIR: join(folder, "data"),
                JUPYTER_RUNTIME_DIR: join(folder, "runtime"),
                PYTHONNOUSERSITE: "1",
            },
        },
    );
    return {
        ...server,
        kernels: [],
        async stop() {
            await server.stop();
            this.kernels.forEach(spare);
            process.off("exit", removeFolder);
            removeFolder();
        },
    };
}

export async function version(server) {
    return (await (await fetch(`${server.address}api`)).json()).version;
}

/** The subprotocol: offsets as 64-bit integers, then channel, header, parent header, metadata and content. */
function encode(channel, ...parts) {
    const segments = [channel, ...parts.map((part) => JSON.stringify(part))].map((text) => Buffer.from(text));
    const offsets = Buffer.alloc(8 * (segments.length + 2));
    let offset = offsets.length;
    offsets.writeBigUInt64LE(BigInt(segments.length + 1), 0);
    offsets.writeBigUInt64LE(BigInt(offset), 8);
    segments.forEach((segment, i) => {
        offset += segment.length;
        offsets.writeBigUInt64LE(BigInt(offset), 8 * (i + 2));
    });
    return Buffer.concat([offsets, ...segments]);
}

function decoder(frame) {
    const offset = (i) => frame.readUInt32LE(8 * (i + 1));
    const part = (i) => JSON.parse(frame.toString("utf8", offset(i), offset(i + 1)));
    return { header: () => part(1), parent: () => part(2), content: () => part(4) };
}

let lastMessageId = 0;

/** Starts a kernel and connects to it. */
export async function connect(server) {
    const created = await fetch(`${server.address}api/kernels`, { method: "POST", headers, body: "{}" });
    const kernel = await created.json();
    if (!created.ok) {
        throw new Error(`${name} started no kernel: ${kernel.message}`);
    }
    const session = `session${process.pid}`;
    const channelsOf = (sessionId) =>
        `${server.address.replace("http", "ws")}api/kernels/${kernel.id}/channels` +
        `?session_id=${sessionId}&token=${token}`;
    const socket = await openSocket(channelsOf(session), [subprotocol]);
    const requests = new Map();
    let onDebugEvent;
    socket.on("message", (frame) => {
        const message = decoder(frame);
        if (onDebugEvent !== undefined && message.header().msg_type === "debug_event") {
            onDebugEvent(message.content());
            return;
        }
        const request = requests.get(message.parent().msg_id);
        if (request === undefined) {
            return;
        }
        // In either order: the kernel sends the reply and its output on two sockets.
        const type = message.header().msg_type;
        if (type === "debug_reply") {
            requests.delete(message.parent().msg_id);
            request.resolve(message.content());
        } else if (type === "execute_reply") {
            const content = message.content();
            if (content.status !== "ok") {
                requests.delete(message.parent().msg_id);
                request.reject(new Error(`${content.ename}: ${content.evalue}`));
                return;
            }
            request.replied = true;
        } else if (type === "execute_result" || type === "display_data") {
            request.output = message.content().data;
        }
        if (type === "stream") {
            request.onText?.(message.content().text);
        }
        if (request.replied && request.output !== undefined) {
            requests.delete(message.parent().msg_id);
            request.resolve(request.output);
        }
    });
    const send = (channel, msg_type, content, request) => {
        const msg_id = `bench${++lastMessageId}`;
        requests.set(msg_id, request);
        const header = {
            msg_id,
            msg_type,
            username: "bench",
            session,
            date: new Date().toISOString(),
            version: "5.3",
        };
        socket.send(encode(channel, header, {}, {}, content));
    };
    /** The output of code that has exactly one. `onText` is told each text that it prints. */
    const execute = (code, onText) =>
        new Promise((resolve, reject) => {
            const content = {
                code,
                silent: false,
                store_history: false,
                user_expressions: {},
                allow_stdin: false,
                stop_on_error: false,
            };
            send("shell", "execute_request", content, {
                resolve,
                reject,
                onText,
                replied: false,
                output: undefined,
            });
        });
    /** The body of the answer to a request of the Debug Adapter Protocol. */
    const askDebugger = async (command, args) => {
        const content = { type: "request", seq: ++lastMessageId, command, arguments: args };
        const { success, body, message } = await new Promise((resolve, reject) =>
            send("control", "debug_request", content, { resolve, reject }),
        );
        if (!success) {
            throw new Error(`${command}: ${message}`);
        }
        return body;
    };
    const evaluate = async (code) => (await execute(code))["text/plain"];
    return {
        eval: evaluate,
        /** Runs code that displays nothing; `onText` takes what it prints, as it comes. Its output, which comes
         *  behind its text, is that of one more line. */
        print: (code, onText) => execute(`${code}\n0`, onText),
        /** What code displays as JSON, as it was parsed. */
        async display(code) {
            return (await execute(code))["application/json"];
        },
        /** Sends code, and gives a promise of its end as soon as the code has printed `mark`. */
        async begin(code, mark) {
            let ended;
            await new Promise((resolve, reject) => {
                ended = execute(code, (text) => {
                    if (text.includes(mark)) {
                        resolve();
                    }
                });
                ended.catch(reject);
            });
            return { ended };
        },
        /** By the REST interface, as its own front end does. */
        async interrupt() {
            const answer = await fetch(`${server.address}api/kernels/${kernel.id}/interrupt`, {
                method: "POST",
                headers,
            });
            if (!answer.ok) {
                throw new Error(`${name} did not interrupt: ${answer.status}`);
            }
        },
        /**
         * What measures of the debugger need, in the order of its own front end. `onStop` is called at each
         * stop; `prepare` gives what sets a breakpoint in code with that text.
         */
        async openDebugger() {
            await askDebugger("initialize", {
                clientID: "bench",
                adapterID: "",
                pathFormat: "path",
                linesStartAt1: true,
                columnsStartAt1: true,
                supportsVariableType: true,
                supportsVariablePaging: true,
                supportsRunInTerminalRequest: true,
            });
            await askDebugger("attach", {});
            await askDebugger("configurationDone", {});
            let source;
            let threadId;
            const setBreakpoints = (...lines) =>
                askDebugger("setBreakpoints", {
                    source,
                    breakpoints: lines.map((line) => ({ line })),
                    sourceModified: false,
                });
            const debug = {
                onStop: undefined,
                async lineOfStop() {
                    const { stackFrames } = await askDebugger("stackTrace", { threadId });
                    return stackFrames[0].line;
                },
                async prepare(code) {
                    const { sourcePath } = await askDebugger("dumpCell", { code });
                    source = { path: sourcePath };
                    return (line) => setBreakpoints(line);
                },
                step: () => askDebugger("next", { threadId }),
                resume: () => askDebugger("continue", { threadId }),
                clear: () => setBreakpoints(),
            };
            onDebugEvent = ({ event, body }) => {
                if (event === "stopped") {
                    ({ threadId } = body);
                    debug.onStop();
                }
            };
            return debug;
        },
        /** Ids of the server and its kernel. To be asked before a measurement that may fail, and outside what is
         *  timed: from then on the kernel cannot outlive this process. */
        async processes() {
            const kernelPid = Number(await evaluate("__import__('os').getpid()"));
            server.kernels.push(kernelPid);
            killAtExit(kernelPid);
            return [server.pid, kernelPid];
        },
        /** Where a page reaches the kernel, in a session of its own. */
        channels: () => ({ address: channelsOf("page"), subprotocol }),
        close: () => socket.close(),
    };
}
