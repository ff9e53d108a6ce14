import { AckExtension, CometD, ReloadExtension } from "cometd";

import type { Transport } from "./Driver.js";

/** What a page runs that is to be loaded again: the stock client with two of its extensions. */

declare global {
    var reloading: {
        /** Text that arrived on the client's channels since this page was loaded. */
        text: string;
        /** Ids of the messages that were sent, in order. */
        ids: string[];
        /** Starts, or goes on where the page before left off; resolves to whether it is the latter. */
        start(url: string, token: string, transport: Transport, id: string): Promise<boolean>;
        publish(channel: string, data: object): Promise<boolean>;
        /** Keeps the session for the next page, and returns the text. */
        leave(): string;
    };
}

const cometd = new CometD();

function request(channel: string, data: object): Promise<boolean> {
    return new Promise((resolve) => {
        cometd.publish(channel, data, (reply) => {
            resolve(reply.successful === true);
        });
    });
}

globalThis.reloading = {
    text: "",
    ids: [],
    start(url, token, transport, id) {
        for (const type of cometd.getTransportTypes().filter((other) => other !== transport)) {
            cometd.unregisterTransport(type);
        }
        cometd.configure({ url, logLevel: "warn" });
        cometd.registerExtension("ack", new AckExtension());
        cometd.registerExtension("reload", new ReloadExtension());
        cometd.registerExtension("ids", {
            outgoing: (message) => {
                this.ids.push(message.id ?? "");
                return message;
            },
        });
        return new Promise((resolve) => {
            cometd.handshake({ ext: { token } }, (handshake) => {
                const isReload = (handshake.ext as { reload?: boolean } | undefined)?.reload === true;
                const onText = ({ data }: { data?: unknown }) => {
                    this.text += (data as { text: string }).text;
                };
                if (isReload) {
                    // The listener has to stand before the first events arrive.
                    cometd.subscribe(`/yvm/${id}/text/*`, onText, () => {
                        resolve(true);
                    });
                    return;
                }
                cometd.subscribe("/yvm/attach/response", () => {
                    cometd.subscribe(`/yvm/${id}/text/*`, onText, () => {
                        resolve(false);
                    });
                });
                void request("/yvm/attach/request", {
                    requestID: id,
                    yvmID: "user-yvm",
                    supportedApiVersions: ["r24a0"],
                });
            });
        });
    },
    publish: request,
    leave() {
        (cometd as unknown as { reload(): void }).reload();
        return this.text;
    },
};
