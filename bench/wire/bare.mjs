// The bare server: a WebSocket and embedded CPython, and nothing else. The floor of a round trip.

import { openSocket } from "./openSocket.mjs";
import { start } from "./processes.mjs";

export const name = "bare server";

export async function startServer(build) {
    return start(`${build}/bench/bare_server`, [], /listening on (\S+)/);
}

export async function connect(server) {
    const socket = await openSocket(`ws://127.0.0.1:${server.address}/`);
    let answered;
    socket.on("message", (data) => answered(data.toString()));
    return {
        eval(expression) {
            return new Promise((resolve) => {
                answered = resolve;
                socket.send(expression);
            });
        },
        processes: async () => [server.pid],
        close: () => socket.close(),
    };
}
