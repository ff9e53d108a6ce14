// yvm-connector, spoken to by hand, so that no client library is measured.

import { openSocket } from "./openSocket.mjs";
import { start } from "./processes.mjs";

export const name = "yvm-connector";

export async function startServer(build) {
    return start(`${build}/bin/yvm-connector`, ["--port", "0"], /listening on (\S+)/);
}

/** Ids of messages, and of the requests in them; no two sessions share one. */
let lastId = 0;
const requestIdOf = (id) => `bench${id}`;

/** Carries the text of the sinks that all clients of r22a0 share, and no responses. */
const sharedText = "/yvm/sinks/response";

/** A session of its own with one client, attached with this version of the protocol. */
export async function connect(server, apiVersion = "r24a0") {
    const url = new URL(server.address);
    const socket = await openSocket(`ws://${url.host}/bayeux${url.search}`);
    const calls = new Map();
    const requests = new Map();
    /** Takes text that belongs to no request in flight. */
    let onOtherText;
    let onEvent;

    socket.on("message", (data) => {
        for (const message of JSON.parse(data)) {
            if (message.id === undefined) {
                handleEvent(message);
            } else {
                handleReply(message);
            }
        }
    });
    function handleEvent({ channel, data }) {
        if (channel.endsWith("/event/fireEvent")) {
            onEvent(data.eventData);
            return;
        }
        const request = requests.get(data.requestID);
        if (!channel.endsWith("/response") || channel === sharedText) {
            if (request === undefined) {
                onOtherText(data.text);
            } else if (request.onText === undefined) {
                request.text += data.text;
            } else {
                request.onText(data.text);
            }
            return;
        }
        requests.delete(data.requestID);
        if (data.error === undefined) {
            request.resolve({ text: request.text, data });
        } else {
            request.reject(new Error(data.error.message));
        }
    }
    function handleReply(reply) {
        const call = calls.get(reply.id);
        calls.delete(reply.id);
        if (!reply.successful) {
            (call ?? requests.get(requestIdOf(reply.id))).reject(new Error(reply.error));
        } else if (call !== undefined) {
            call.resolve(reply);
        }
    }
    const send = (id, message) => socket.send(JSON.stringify([{ id: String(id), ...message }]));
    /** Resolves with the reply. */
    const call = (message) =>
        new Promise((resolve, reject) => {
            const id = ++lastId;
            calls.set(String(id), { resolve, reject });
            send(id, message);
        });
    /** Resolves with the response, and the text before it unless `onText` is given, which takes it as it comes. */
    const request = (channel, data, onText) =>
        new Promise((resolve, reject) => {
            const id = ++lastId;
            const requestID = requestIdOf(id);
            requests.set(requestID, { text: "", resolve, reject, onText });
            send(id, { channel, clientId, data: { requestID, ...data } });
        });

    const { clientId } = await call({
        channel: "/meta/handshake",
        version: "1.0",
        supportedConnectionTypes: ["websocket"],
    });
    const meta = (channel, more) => call({ channel, clientId, ...more });
    await meta("/meta/connect", { connectionType: "websocket", advice: { timeout: 0 } });
    const stayConnected = () =>
        meta("/meta/connect", { connectionType: "websocket" }).then(stayConnected, () => {});
    void stayConnected();
    await meta("/meta/subscribe", { subscription: "/yvm/attach/response" });
    const attached = await request("/yvm/attach/request", {
        yvmID: "user-yvm",
        supportedApiVersions: [apiVersion],
    });
    const { channelPrefix } = attached.data;
    await meta("/meta/subscribe", { subscription: `${channelPrefix}/**` });
    const runOptions = { useNullOutSink: false, useNullErrSink: false };
    return {
        /** What a command displays. */
        async eval(command) {
            return (await request(`${channelPrefix}/eval/request`, { command, runOptions })).text.trimEnd();
        },
        /** Runs a command that displays nothing; `onText` takes what it prints, as it comes. */
        print: (command, onText) => request(`${channelPrefix}/eval/request`, { command, runOptions }, onText),
        /** Who is to take text that comes outside of its command: what threads print once that is answered, and
         *  client-wide text. */
        takeOtherText(onText) {
            onOtherText = onText;
        },
        /** Takes over, and gives back, the client-wide text. */
        installSinks: () => request(`${channelPrefix}/yvmSinks/request`, {}),
        revertSinks: () =>
            request(`${channelPrefix}/yvmSinks/request`, { outSinkTraits: null, errSinkTraits: null }),
        /** The same with r22a0, which has no way back: the sinks stay. */
        async installSharedSinks() {
            await meta("/meta/subscribe", { subscription: sharedText });
            await meta("/yvm/sinks/set", { data: {} });
        },
        /** Runs a command without text of its own. */
        run: (command) => request(`${channelPrefix}/eval/request`, { command, runOptions: {} }),
        /** The result of a function without arguments, as it was parsed. */
        async feval(functionName) {
            const { data } = await request(`${channelPrefix}/feval/request`, {
                function: functionName,
                numOutputsExpected: 1,
                rhsArgs: [],
                runOptions,
            });
            return data.result[0];
        },
        /** Sends a command, and gives a promise of its end as soon as the command has shown `mark`. */
        async begin(command, mark) {
            let ended;
            await new Promise((resolve, reject) => {
                let shown = "";
                ended = request(`${channelPrefix}/eval/request`, { command, runOptions }, (text) => {
                    shown += text;
                    if (shown.includes(mark)) {
                        resolve();
                    }
                });
                ended.catch(reject);
            });
            return { ended };
        },
        /** Sends a command that waits in the group. */
        enqueue: (command, group) =>
            request(`${channelPrefix}/eval/request`, {
                command,
                runOptions: { ...runOptions, groupNames: [group] },
            }),
        /** The number of variables, asked for at a pre-emption point of whatever runs. */
        async countVariables() {
            const { data } = await request(`${channelPrefix}/feval/request`, {
                function: "yvm.who",
                numOutputsExpected: 1,
                rhsArgs: [],
                runOptions: { ...runOptions, dequeueMode: "DEQUEUE_AT_PPE" },
            });
            return data.result[0].ywdata.length;
        },
        interrupt: () => request(`${channelPrefix}/interrupt/request`, {}),
        cancelGroup: (requestGroupNametoCancel) =>
            request(`${channelPrefix}/cancelGroup/request`, { requestGroupNametoCancel }),
        /**
         * What measures of the debugger need. `onStop` is called at each stop; `prepare` gives what sets a breakpoint
         * in the next command with that text.
         */
        async openDebugger() {
            const feval = async (name, dequeueMode, ...rhsArgs) => {
                const { data } = await request(`${channelPrefix}/feval/request`, {
                    function: `yvm.debug.${name}`,
                    numOutputsExpected: rhsArgs.length,
                    rhsArgs: rhsArgs.map((argument) => JSON.stringify(argument)),
                    runOptions: { ...runOptions, dequeueMode },
                });
                return data.result[0];
            };
            const change = (kind, breakpoint) =>
                request(`${channelPrefix}/${kind}LineBreakpoint/request`, { breakpoint });
            let breakpoint;
            let line;
            const debug = {
                onStop: undefined,
                lineOfStop: () => line,
                async prepare(command) {
                    const fileName = await feval("name_command", "DEQUEUE_AT_PROMPT", command);
                    return (lineNumber) => {
                        breakpoint = { fileName, location: { lineNumber } };
                        return change("set", breakpoint);
                    };
                },
                step: () => feval("step", "DEQUEUE_AT_DEBUG_PROMPT"),
                resume: () => feval("resume", "DEQUEUE_AT_DEBUG_PROMPT"),
                clear: () => change("clear", breakpoint),
            };
            onEvent = ({ stackFrames }) => {
                line = stackFrames.at(-1).lineNumber;
                debug.onStop();
            };
            await request(`${channelPrefix}/subscribeEvent/request`, {
                eventName: "yvm::DebuggerStoppedEvent",
            });
            return debug;
        },
        /** The socket is not read while it is paused. */
        pause: () => socket.pause(),
        resume: () => socket.resume(),
        processes: async () => [server.pid],
        close: () => socket.close(),
    };
}
