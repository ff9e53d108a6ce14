import { afterAll, beforeAll, describe, expect, it } from "vitest";

import type { Message } from "./Driver.js";
import { Gate } from "./Gate.js";
import { RawSocket } from "./RawSocket.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient } from "./StockClient.js";

/** Sessions that end while the engine is busy, with the real module behind them. */

let server: ServerProcess;
let gate: Gate;

beforeAll(async () => {
    server = await ServerProcess.start("--grace-time", "1");
    gate = new Gate();
});

afterAll(async () => {
    gate.remove();
    expect((await server.stop()).code).toBe(0);
});

const attach = (requestID: string) => ({
    channel: "/yvm/attach/request",
    data: { requestID, yvmID: "user-yvm", supportedApiVersions: ["r24a0"] },
});

interface Ending {
    readonly how: string;
    /** What the client still sends. */
    readonly last: (id: string) => object[];
}

const detach = (id: string) => ({
    channel: "/yvm/detach/request",
    data: { requestID: `bye-${id}`, requestIDtoDetach: id },
});
const disconnect = { channel: "/meta/disconnect" };
const endings: Ending[] = [
    { how: "disconnects", last: () => [disconnect] },
    { how: "vanishes", last: () => [] },
    { how: "detaches and disconnects", last: (id) => [detach(id), disconnect] },
    { how: "detaches and vanishes", last: (id) => [detach(id)] },
    { how: "detaches, attaches again and vanishes", last: (id) => [detach(id), attach(id)] },
];

describe("a session whose attach waits for the engine", () => {
    it.each(endings.map((ending, index) => ({ ...ending, id: `waiting-${String(index)}` })))(
        "and that $how leaves its identifier to the next",
        async ({ id, last }) => {
            const client = await StockClient.attached(server, `busy-${id}`);
            const busy = client.print(
                `busy-${id}`,
                `print('busy', flush=True); print(${gate.python}.read())`,
            );
            await client.event(({ data }) => data["text"] === "busy\n");

            const socket = await RawSocket.open(`${server.endpoint}?token=${server.token}`);
            const supportedConnectionTypes = ["websocket"];
            const [handshake] = (await socket.ask(
                JSON.stringify([{ channel: "/meta/handshake", version: "1.0", supportedConnectionTypes }]),
            )) as Message[];
            const messages = [attach(id), ...last(id)].map((message) => ({
                ...message,
                clientId: handshake?.clientId,
            }));
            const replies = (await socket.ask(JSON.stringify(messages))) as Message[];
            expect(replies.map(({ successful }) => successful)).toEqual(messages.map(() => true));
            socket.destroy();
            await gate.open();
            expect(await busy).toBe("busy\nfree\n");

            const next = new StockClient(server);
            await next.begin();
            const { channel, data } = attach(id);
            // The identifier is taken until the server's own detach has been carried out.
            for (;;) {
                const { successful, error } = await next.publish(channel, data);
                if (successful === true) {
                    break;
                }
                expect(error).toBe("403::the requestID is in use by another session");
            }
            const { data: response } = await next.event(({ data: { requestID } }) => requestID === id);
            expect(response).toEqual({ requestID: id, apiVersion: "r24a0", channelPrefix: `/yvm/${id}` });
            await next.subscribe(`/yvm/${id}/**`);
            expect(await next.print(id, "1+1")).toBe("2\n");
            await Promise.all([client.disconnect(), next.disconnect()]);
        },
    );
});
