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

/** A session of its own with one attached client. */
export async function connect(server) {
    const url = new URL(server.address);
    const socket = await openSocket(`ws://${url.host}/bayeux${url.search}`);
    const calls = new Map();
    const requests = new Map();

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
        const request = requests.get(data.requestID);
        if (!channel.endsWith("/response")) {
            request.text += data.text;
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
    /** Resolves with the response, and the text before it. */
    const request = (channel, data) =>
        new Promise((resolve, reject) => {
            const id = ++lastId;
            const requestID = requestIdOf(id);
            requests.set(requestID, { text: "", resolve, reject });
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
        supportedApiVersions: ["r24a0"],
    });
    const { channelPrefix } = attached.data;
    await meta("/meta/subscribe", { subscription: `${channelPrefix}/**` });
    const runOptions = { useNullOutSink: false, useNullErrSink: false };
    return {
        /** What a command displays. */
        async eval(command) {
            return (await request(`${channelPrefix}/eval/request`, { command, runOptions })).text.trimEnd();
        },
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
        processes: async () => [server.pid],
        close: () => socket.close(),
    };
}
