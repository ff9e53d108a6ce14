// The programs that are measured: how they start, end, and what memory they hold.

import { execFileSync, spawn } from "node:child_process";
import { readFileSync } from "node:fs";
import { createInterface } from "node:readline";

/** What a program may take to listen, to end, or to settle, before the run fails. */
const boundMilliseconds = 60_000;
const settledReadings = 5;
const readingMilliseconds = 100;

/** Ids of processes that must not outlive this one, however it ends. */
const toKill = new Set();
process.once("exit", () => {
    for (const pid of toKill) {
        kill(pid, "SIGKILL");
    }
});
for (const [signal, number] of [
    ["SIGINT", 2],
    ["SIGTERM", 15],
    ["SIGHUP", 1],
]) {
    process.once(signal, () => process.exit(128 + number));
}

function kill(pid, signal) {
    try {
        process.kill(pid, signal);
    } catch (error) {
        if (error.code !== "ESRCH") {
            throw error;
        }
    }
}

/** The result of `promise`, or an error that says what was waited for. */
export async function within(milliseconds, what, promise) {
    let timer;
    const late = new Promise((_, reject) => {
        timer = setTimeout(
            () => reject(new Error(`no ${what} within ${milliseconds / 1000} s`)),
            milliseconds,
        );
    });
    try {
        return await Promise.race([promise, late]);
    } finally {
        clearTimeout(timer);
    }
}

/** Starts a program and waits until `listening` matches a line of its output; gives what its group matched. */
export async function start(program, args, listening, { stream = "stdout", env } = {}) {
    const child = spawn(program, args, {
        env: env ?? process.env,
        stdio: ["ignore", stream === "stdout" ? "pipe" : "ignore", stream === "stderr" ? "pipe" : "inherit"],
    });
    let mayEnd = true;
    const ended = new Promise((resolve, reject) => {
        child.once("error", reject);
        child.once("exit", (code, signal) => {
            toKill.delete(child.pid);
            if (!mayEnd) {
                throw new Error(`${program} ended with ${code ?? signal}`);
            }
            resolve(code ?? signal);
        });
    });
    toKill.add(child.pid);
    const lines = [];
    const address = await within(
        boundMilliseconds,
        `address of ${program}`,
        new Promise((resolve, reject) => {
            createInterface({ input: child[stream] }).on("line", (line) => {
                lines.push(line);
                const match = listening.exec(line);
                if (match !== null) {
                    resolve(match[1]);
                }
            });
            ended.then(
                (status) => reject(new Error(`${program} ended with ${status}: ${lines.join("\n")}`)),
                reject,
            );
        }),
    );
    mayEnd = false;
    return {
        address,
        pid: child.pid,
        /** Asks the program to end, and waits for it. */
        async stop() {
            mayEnd = true;
            child.kill("SIGTERM");
            await within(boundMilliseconds, `end of ${program}`, ended);
        },
    };
}

/** For a process that one of ours started: it is killed when this one ends, unless it is spared before. */
export const killAtExit = (pid) => toKill.add(pid);
export const spare = (pid) => toKill.delete(pid);

function kibibytes(path, key) {
    const match = new RegExp(`^${key}:\\s+(\\d+) kB$`, "m").exec(readFileSync(path, "utf8"));
    if (match === null) {
        throw new Error(`${path} has no ${key}`);
    }
    return Number(match[1]);
}

/** Resident memory and proportional share (shared pages counted by share), of several processes together, in KiB. */
function memory(pids) {
    const sum = (file, key) => pids.reduce((total, pid) => total + kibibytes(`/proc/${pid}/${file}`, key), 0);
    return { rss: sum("status", "VmRSS"), pss: sum("smaps_rollup", "Pss") };
}

/** The memory of processes at rest: what it is once it has been the same several times in a row. */
export async function memoryAtRest(pids) {
    const deadline = performance.now() + boundMilliseconds;
    let last = memory(pids);
    for (let same = 0; same < settledReadings;) {
        if (performance.now() > deadline) {
            throw new Error(`the memory of ${pids.join(", ")} did not come to rest`);
        }
        await new Promise((resolve) => setTimeout(resolve, readingMilliseconds));
        const now = memory(pids);
        same = now.rss === last.rss ? same + 1 : 0;
        last = now;
    }
    return last;
}

/** The most that a process has had resident so far, in KiB. */
export const peakMemory = (pid) => kibibytes(`/proc/${pid}/status`, "VmHWM");

/** Milliseconds of processor time that processes have used so far, in all their threads. */
export function processorTime(pids) {
    return pids.reduce((total, pid) => {
        // Behind the name, which may hold blanks and brackets; user and system time, in hundredths of a second.
        const fields = readFileSync(`/proc/${pid}/stat`, "utf8").split(") ").at(-1).split(" ");
        return total + 10 * (Number(fields[11]) + Number(fields[12]));
    }, 0);
}

/** The processors that this process was given, such as "0-3,8". */
const allProcessors = /^Cpus_allowed_list:\s+(\S+)$/m.exec(readFileSync("/proc/self/status", "utf8"))[1];
const [firstProcessor, ...otherProcessors] = allProcessors.split(",").flatMap((range) => {
    const [first, last = first] = range.split("-").map(Number);
    return Array.from({ length: last - first + 1 }, (_, i) => first + i);
});

function runOn(processors, pid) {
    execFileSync("taskset", ["--all-tasks", "--cpu-list", "--pid", processors, String(pid)], {
        stdio: "ignore",
    });
}

/** Whether there are processors enough to keep this process and the servers apart. */
export const canKeepApart = otherProcessors.length > 0;

/** Gives the first processor to this process, and the others to the processes of the servers. */
export function keepApart(pids) {
    runOn(String(firstProcessor), process.pid);
    pids.forEach((pid) => runOn(otherProcessors.join(","), pid));
}

/** Lets the scheduler place them again. */
export function letFloat(pids) {
    [process.pid, ...pids].forEach((pid) => runOn(allProcessors, pid));
}
