import { afterEach, beforeEach, describe, expect, it } from "vitest";

import { connect, type Connection, type ConnectionStatus } from "../src/node.js";
import { FakeServer } from "./FakeServer.js";

let server: FakeServer;
const open: Connection[] = [];

beforeEach(async () => {
    server = await FakeServer.start();
});

afterEach(async () => {
    await Promise.all(open.splice(0).map((connection) => connection.disconnect()));
    await server.stop();
});

async function connected(): Promise<Connection> {
    const connection = await connect(server.url, { token: "secret" });
    open.push(connection);
    return connection;
}

function untilState(connection: Connection, state: ConnectionStatus["state"]): Promise<ConnectionStatus> {
    return new Promise((resolve) => {
        const listener = connection.onStatus((status) => {
            if (status.state === state) {
                listener.dispose();
                resolve(status);
            }
        });
    });
}

describe("connect", () => {
    it("takes the token from the address", async () => {
        const connection = await connect(`${server.url}?token=secret`);
        open.push(connection);
        expect(connection.status).toEqual({ state: "connected" });
    });

    it("rejects a wrong token with the server's reason", async () => {
        await expect(connect(server.url, { token: "guess" })).rejects.toMatchObject({
            name: "RefusedError",
            code: 401,
            reason: "wrong token",
        });
    });

    it("rejects when no server answers", async () => {
        const { url } = server;
        await server.stop();
        await expect(connect(url, { token: "secret" })).rejects.toMatchObject({
            name: "ConnectionError",
            message: `No server answers at ${url}bayeux`,
        });
    });

    it("rejects an address that is none", async () => {
        await expect(connect("localhost:8888")).rejects.toThrow(
            '"localhost:8888" is no address of the form http://host:port/ or https://host:port/',
        );
    });
});

describe("a connection", () => {
    it("fails what is open when the link is lost, and carries new requests when it is back", async () => {
        const connection = await connected();
        const client = await connection.attach({ requestID: "c1" });
        const request = client.eval("1");
        await server.publishOn("/yvm/c1/eval/request");
        const lost = untilState(connection, "lost");
        const restored = untilState(connection, "connected");
        await server.cutSockets();
        await expect(request.done).rejects.toMatchObject({ name: "ConnectionError" });
        await lost;
        await restored;
        expect(server.published.filter(({ channel }) => channel === "/yvm/attach/request")).toHaveLength(1);
        const next = client.eval("2");
        await server.publishOn("/yvm/c1/eval/request", 2);
        server.push("/yvm/c1/eval/response", { requestID: next.requestID });
        await next;
    });

    it("attaches and subscribes again when the server has forgotten the session", async () => {
        const connection = await connected();
        const client = await connection.attach({ requestID: "c1" });
        const restored = untilState(connection, "connected");
        server.subscribed.length = 0;
        await server.cutSockets();
        server.forgetSessions();
        await restored;
        expect(server.subscribed).toEqual(["/yvm/attach/response", "/yvm/detach/response", "/yvm/c1/**"]);
        const request = client.eval("1");
        await server.publishOn("/yvm/c1/eval/request");
        server.push("/yvm/c1/text/output", { requestID: request.requestID, stream: 0, text: "1" });
        server.push("/yvm/c1/eval/response", { requestID: request.requestID });
        expect((await request).text).toBe("1");
    });

    it("closes a client that cannot be attached again", async () => {
        const connection = await connected();
        const client = await connection.attach({ requestID: "c1" });
        const restored = untilState(connection, "connected");
        server.refusals.set("/yvm/attach/request", "403::identifier in use");
        await server.cutSockets();
        server.forgetSessions();
        await restored;
        expect(client.closed).toMatchObject({ name: "RefusedError", code: 403 });
        await expect(client.eval("1").done).rejects.toMatchObject({
            name: "ClosedError",
            cause: { name: "RefusedError", code: 403 },
        });
    });

    it("closes with the reason when the server ends the session", async () => {
        const connection = await connected();
        const client = await connection.attach({ requestID: "c1" });
        const request = client.eval("1");
        const rejected = expect(request.done).rejects.toMatchObject({ name: "RefusedError" });
        await server.publishOn("/yvm/c1/eval/request");
        const closed = untilState(connection, "closed");
        await server.endSession("413::the queue is full");
        expect(await closed).toMatchObject({
            reason: { name: "RefusedError", code: 413, reason: "the queue is full" },
        });
        await rejected;
        await expect(connection.attach()).rejects.toMatchObject({ name: "ClosedError" });
    });

    it("ends when the server speaks another protocol", async () => {
        const connection = await connected();
        const client = await connection.attach({ requestID: "c1" });
        const request = client.eval("1");
        await server.publishOn("/yvm/c1/eval/request");
        server.push("/yvm/c1/eval/response", { requestID: 7 });
        await expect(request.done).rejects.toMatchObject({
            name: "ProtocolError",
            message: "/yvm/c1/eval/response.requestID should be a string, but is number",
        });
        expect(connection.status.state).toBe("closed");
    });

    it("settles an attach that the server never answers, on disconnect", async () => {
        const connection = await connected();
        server.muted.add("/meta/subscribe");
        const rejected = expect(connection.attach()).rejects.toBeInstanceOf(Error);
        await server.until(() => server.subscribed.length > 0);
        await connection.disconnect();
        await rejected;
    });

    it("attaches once under one identifier, and again after a detach", async () => {
        const connection = await connected();
        const attached = connection.attach({ requestID: "c1" });
        await expect(connection.attach({ requestID: "c1" })).rejects.toThrow(
            new TypeError('A client of this connection is attached as "c1" already'),
        );
        await (await attached).detach();
        await (await connection.attach({ requestID: "c1" })).detach();
    });

    it("settles everything on disconnect, which may be called twice", async () => {
        const connection = await connected();
        const client = await connection.attach({ requestID: "c1" });
        const request = client.eval("1");
        const refused = expect(request.done).rejects.toMatchObject({ name: "ClosedError" });
        server.onPublish = () => undefined;
        const attach = connection.attach();
        const refusedAttach = expect(attach).rejects.toMatchObject({ name: "ClosedError" });
        await server.publishOn("/yvm/attach/request", 2);
        await connection.disconnect();
        await connection.disconnect();
        await refused;
        await refusedAttach;
    });
});
