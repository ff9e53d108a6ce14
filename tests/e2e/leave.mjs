// A program that uses a stock library and disconnects: node leave.mjs cometd|faye websocket|long-polling URL.
// It prints the time of the disconnect, and should end by itself right afterwards.

import { CometD } from "cometd";
import { adapt } from "cometd-nodejs-client";
import faye from "faye";

const [library, transport, url] = process.argv.slice(2);

function disconnected() {
    console.log(Date.now());
}

if (library === "cometd") {
    adapt();
    const client = new CometD();
    client.configure({ url, logLevel: "warn" });
    client.unregisterTransport(transport === "websocket" ? "long-polling" : "websocket");
    client.handshake(() => {
        client.subscribe(
            "/yvm/attach/response",
            () => undefined,
            () => {
                client.disconnect(disconnected);
            },
        );
    });
} else {
    const client = new faye.Client(url);
    if (transport === "long-polling") {
        client.disable("websocket");
    }
    await client.subscribe("/yvm/attach/response");
    await client.disconnect();
    disconnected();
}
