// How soon the debugger acts, as its client sees it: a breakpoint from its request to the answer, a stop from the
// line before it to the event, and a step from its request to the event of the next stop.

import { below, heading, median, quantile, row } from "./report.mjs";
import * as peer from "./peer.mjs";
import * as yvm from "./yvm.mjs";

/** The second line runs as late before the stop as can be; the clock is that of `process.hrtime`. */
const program = `import time
before = time.monotonic_ns()
x = 1
y = 2
str(before)`;
const [stopLine, stepLine, displayLine] = [3, 4, 5];

const [warmUp, rounds, perRound] = [5, 20, 5];

/** Resolves with the time at which the event of the next stop came. */
function nextStop(debug) {
    return new Promise((resolve) => {
        debug.onStop = () => resolve(process.hrtime.bigint());
    });
}

async function checkLine(debug, expected) {
    const line = await debug.lineOfStop();
    if (line !== expected) {
        throw new Error(`stopped in line ${line} instead of ${expected}`);
    }
}

const millisecondsBetween = (begin, end) => Number(end - begin) / 1e6;

async function runOnce({ client, debug, figures }) {
    const set = await debug.prepare(program);
    let begin = process.hrtime.bigint();
    await set(stopLine);
    figures.set.push(millisecondsBetween(begin, process.hrtime.bigint()));
    let stopping = nextStop(debug);
    const displayed = client.eval(program);
    const hit = await stopping;
    await checkLine(debug, stopLine);
    for (const line of [stepLine, displayLine]) {
        stopping = nextStop(debug);
        begin = process.hrtime.bigint();
        void debug.step();
        figures.step.push(millisecondsBetween(begin, await stopping));
        await checkLine(debug, line);
    }
    await debug.resume();
    // Behind what is shown of the stops, if they are: as Python displays a text.
    const [, before] = /'(\d+)'$/.exec(await displayed);
    figures.hit.push(millisecondsBetween(BigInt(before), hit));
    await debug.clear();
}

export async function measureDebugger(inTurns, sides) {
    for (const side of sides) {
        side.debug = await side.client.openDebugger();
    }
    for (const count of [warmUp, rounds]) {
        sides.forEach((side) => (side.figures = { set: [], hit: [], step: [] }));
        await inTurns(count, sides, async (side) => {
            for (let i = 0; i < perRound; ++i) {
                await runOnce(side);
            }
        });
    }
    const goals = [
        ["set", "a breakpoint, from its request to the answer", 1],
        ["hit", "a stop, from the line before it to its event", 1],
        ["step", "a step, from its request to the event of the next stop", 2],
    ];
    for (const [key, what, goal] of goals) {
        heading(what);
        const p50 = {};
        for (const { module, figures } of sides) {
            p50[module.name] = median(figures[key]);
            row(
                module.name,
                `p50 ${p50[module.name].toFixed(2)} ms`,
                `p99 ${quantile(figures[key], 0.99).toFixed(2)} ms`,
                `${figures[key].length} times`,
            );
        }
        below("our p50", p50[yvm.name], "ms", goal);
        row("peer to ours, p50", `${(p50[peer.name] / p50[yvm.name]).toFixed(0)} times`);
    }
}
