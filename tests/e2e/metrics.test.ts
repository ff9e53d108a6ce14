import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { ServerProcess } from "./ServerProcess.js";
import { StockClient } from "./StockClient.js";

/** What /metrics tells after traffic that the test knows. */

let server: ServerProcess;

beforeAll(async () => {
    server = await ServerProcess.start();
});

afterAll(async () => {
    expect((await server.stop()).code).toBe(0);
});

/** The samples by name and labels, as a scraper with the token in its header reads them. */
async function scrape(): Promise<Map<string, number>> {
    const response = await fetch(new URL("/metrics", server.url.origin), {
        headers: { Authorization: `Bearer ${server.token}` },
    });
    expect(response.status).toBe(200);
    expect(response.headers.get("content-type")).toBe("text/plain; version=0.0.4; charset=utf-8");
    const samples = new Map<string, number>();
    for (const line of (await response.text()).trimEnd().split("\n")) {
        if (line.startsWith("#")) {
            expect(line).toMatch(/^# (HELP|TYPE) [a-z_]+ .+$/);
            continue;
        }
        const [, name, value] = /^([a-z_]+(?:\{[^{}]*\})?) ([0-9.]+)$/.exec(line) ?? [];
        if (name === undefined || samples.has(name)) {
            expect.fail(`no sample, or a second of its name: ${line}`);
        }
        samples.set(name, Number(value));
    }
    return samples;
}

describe("the metrics", () => {
    it("count evals and fevals by outcome, and tell how long they waited and ran", async () => {
        const begin = performance.now();
        const client = await StockClient.attached(server, "measured");
        await client.eval("measured", "import time; time.sleep(0.3)");
        await client.eval("measured", "1/0");
        await client.feval("measured", "abs", ["-1"]);
        await client.feval("measured", "abs", ["-2"]);
        await client.feval("measured", "no_such_function", []);
        // One that runs, and one that waits behind it: a detach cancels the one and interrupts the other.
        await client.publish("/yvm/measured/eval/request", {
            requestID: "runs",
            command: "print('on'); time.sleep(600)",
            runOptions: { useNullOutSink: false },
        });
        await client.event(({ data }) => data["requestID"] === "runs" && data["stream"] === 0);
        const waits = { requestID: "waits", command: "1" };
        expect((await client.publish("/yvm/measured/eval/request", waits)).successful).toBe(true);
        const during = await scrape();
        expect(during.get('yvm_connector_commands_in_flight{kind="eval"}')).toBe(2);
        expect(during.get('yvm_connector_commands_in_flight{kind="feval"}')).toBe(0);
        expect(during.get("yvm_connector_clients")).toBe(1);
        await client.request("/yvm/detach", { requestID: "d", requestIDtoDetach: "measured" });
        // The engine has stopped the command when it takes the next.
        await client.attachAs("next");
        await client.eval("next", "1");
        const elapsed = (performance.now() - begin) / 1000;
        // An answer may be read before it is counted.
        const inFlight = 'yvm_connector_commands_in_flight{kind="eval"}';
        await expect.poll(async () => (await scrape()).get(inFlight)).toBe(0);

        const samples = await scrape();
        const ended = (kind: string) =>
            ["succeeded", "failed", "interrupted", "cancelled", "abandoned"].map((outcome) =>
                samples.get(`yvm_connector_commands_total{kind="${kind}",outcome="${outcome}"}`),
            );
        expect(ended("eval")).toEqual([2, 1, 1, 1, 0]);
        expect(ended("feval")).toEqual([2, 1, 0, 0, 0]);
        const times = (what: string, kind: string) => ({
            count: samples.get(`yvm_connector_command_${what}_seconds_count{kind="${kind}"}`),
            sum: samples.get(`yvm_connector_command_${what}_seconds_sum{kind="${kind}"}`) ?? NaN,
        });
        expect(times("queue", "eval").count).toBe(5);
        expect(times("run", "eval").count).toBe(4);
        expect(times("queue", "feval").count).toBe(3);
        expect(times("run", "feval").count).toBe(3);
        // The first command slept; and no command ran at the same time as another.
        expect(times("run", "eval").sum).toBeGreaterThanOrEqual(0.3);
        expect(times("run", "eval").sum + times("run", "feval").sum).toBeLessThan(elapsed);
        expect(times("queue", "eval").sum).toBeGreaterThan(0);
        expect(samples.get('yvm_connector_command_run_seconds_bucket{kind="eval",le="0.25"}')).toBeLessThan(
            4,
        );
        expect(samples.get("yvm_connector_clients")).toBe(1);
        expect(samples.get("process_resident_memory_bytes")).toBeGreaterThan(10_000_000);

        await client.disconnect();
        await expect.poll(async () => (await scrape()).get("yvm_connector_clients")).toBe(0);
        const after = await scrape();
        expect(after.get("yvm_connector_sessions")).toBe(0);
        expect(after.get("yvm_connector_subscriptions")).toBe(0);
        expect(after.get('yvm_connector_sessions_ended_total{cause="disconnect"}')).toBe(1);
    });

    it("count refusals by reason", async () => {
        const before = await scrape();
        const stranger = new StockClient(server);
        await stranger.handshake("guess");
        const after = await scrape();
        const changed = [...after].filter(
            ([name, value]) => name.includes("_refusals_total") && value !== before.get(name),
        );
        expect(changed).toEqual([['yvm_connector_refusals_total{reason="unauthorized"}', 1]]);
    });

    it("are not told without the token", async () => {
        const response = await fetch(new URL("/metrics", server.url.origin));
        expect(response.status).toBe(401);
        expect(await response.text()).toBe("the token is missing or wrong\n");
    });
});
