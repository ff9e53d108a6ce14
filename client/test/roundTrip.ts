import type { Client, R22a0Client } from "../src/node.js";
import type { FakeServer } from "./FakeServer.js";

/** Waits until everything that the client has published before has arrived. */
export async function roundTrip(server: FakeServer, client: Client | R22a0Client): Promise<void> {
    const marker = client.eval("marker");
    await server.until(() => server.published.some(({ data }) => data["requestID"] === marker.requestID));
    server.push(`${client.channelPrefix}/eval/response`, { requestID: marker.requestID });
    await marker;
}
