import type { Connection } from "../src/node.js";
import type { FakeServer } from "./FakeServer.js";

/** Cuts the link, does something meanwhile, waits until the link is up again, and returns what was told of it. */
export async function cutAndRestore(
    server: FakeServer,
    yvm: Connection,
    meanwhile: () => void = () => undefined,
): Promise<string[]> {
    const states: string[] = [];
    const restored = new Promise<void>((resolve) => {
        const listener = yvm.onStatus(({ state }) => {
            states.push(state);
            if (state === "connected") {
                listener.dispose();
                resolve();
            }
        });
    });
    await server.cutSockets();
    meanwhile();
    await restored;
    return states;
}
