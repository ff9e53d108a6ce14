// yvm-connector, spoken to through the stock `cometd` package, as pages do.

import { CometD } from "cometd";
import { adapt } from "cometd-nodejs-client";

export const name = "through cometd";

// It looks for the WebSocket of a browser, and defines one.
adapt();

/** A session of its own with one attached client, on a server that runs already. */
export async function connect(server) {
    const url = new URL(server.address);
    const cometd = new CometD();
    cometd.configure({ url: `${url.origin}/bayeux${url.search}`, logLevel: "warn" });
    const reply = (start) =>
        new Promise((resolve, reject) => {
            start((message) =>
                message.successful ? resolve(message) : reject(new Error(JSON.stringify(message))),
            );
        });
    await reply((done) => cometd.handshake(done));
    const requests = new Map();
    const subscribe = (channel, callback) => reply((done) => cometd.subscribe(channel, callback, done));
    const onResponse = ({ data }) => {
        const { resolve, reject } = requests.get(data.requestID);
        requests.delete(data.requestID);
        if (data.error === undefined) {
            resolve(data);
        } else {
            reject(new Error(data.error.message));
        }
    };
    let lastId = 0;
    const request = (channel, data, onText) =>
        new Promise((resolve, reject) => {
            const requestID = `cometd${++lastId}`;
            requests.set(requestID, { resolve, reject, onText });
            cometd.publish(channel, { requestID, ...data });
        });
    await subscribe("/yvm/attach/response", onResponse);
    const { channelPrefix } = await request("/yvm/attach/request", {
        yvmID: "user-yvm",
        supportedApiVersions: ["r24a0"],
    });
    await subscribe(`${channelPrefix}/eval/response`, onResponse);
    await subscribe(`${channelPrefix}/text/output`, ({ data }) =>
        requests.get(data.requestID).onText(data.text),
    );
    const runOptions = { useNullOutSink: false, useNullErrSink: false };
    return {
        /** Runs a command that displays nothing; `onText` takes what it prints, as it comes. */
        print: (command, onText) => request(`${channelPrefix}/eval/request`, { command, runOptions }, onText),
        close: () => cometd.disconnect(),
    };
}
