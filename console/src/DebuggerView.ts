import type {
    Breakpoint,
    BreakpointCondition,
    Breakpoints,
    ConditionBreakpoint,
    DebugFrame,
    DebugVariable,
    StopReason,
} from "yvm-client";

import type { Stop } from "./DebuggerMonitor";
import { make } from "./dom";

/** How a stopped command can be moved on. */
export type Move = "resume" | "step" | "stepIn" | "stepOut" | "quit";

/** What a person can ask for; each rejects when it cannot be had. */
export interface DebuggerActions {
    move(move: Move): Promise<void>;
    /** Selects another frame: so many calls out, or in if negative. */
    select(callsOut: number): Promise<void>;
    breakIn(): Promise<void>;
    set(breakpoint: Breakpoint): Promise<void>;
    clear(breakpoint: Breakpoint): Promise<void>;
    clearAll(): Promise<void>;
}

const reasons: Readonly<Record<StopReason, string>> = {
    breakpoint: "at a breakpoint",
    step: "behind a step",
    break: "as asked",
    error: "by an error that nobody catches",
    warning: "by a warning",
    caughtError: "by an error that is caught",
    nanInf: "by a NaN or an infinity",
    output: "before a value is displayed",
};

const moves: readonly { readonly move: Move; readonly label: string; readonly keys: string }[] = [
    { move: "resume", label: "Continue", keys: "F8" },
    { move: "step", label: "Step", keys: "F10" },
    { move: "stepIn", label: "Step in", keys: "F11" },
    { move: "stepOut", label: "Step out", keys: "Shift+F11" },
    { move: "quit", label: "Quit", keys: "Shift+F8" },
];

const conditions: readonly { readonly type: BreakpointCondition; readonly label: string }[] = [
    { type: "ERROR", label: "Errors that nobody catches" },
    { type: "CAUGHT_ERROR", label: "Errors that are caught" },
    { type: "WARNING", label: "Warnings" },
    { type: "NAN_INF", label: "NaN and infinity" },
    { type: "UNSUPPRESSED_OUTPUT", label: "Values about to be displayed" },
];

/** The move that a key stands for. */
export function moveOfKey({ key, shiftKey }: Pick<KeyboardEvent, "key" | "shiftKey">): Move | undefined {
    const keys = `${shiftKey ? "Shift+" : ""}${key}`;
    return moves.find((entry) => entry.keys === keys)?.move;
}

/** The panel of the debugger: the stopped command, and the breakpoints that there are. */
export class DebuggerView {
    readonly #actions: DebuggerActions;
    readonly #title = make("p", "stop-title");
    readonly #message = make("p", "stop-message");
    readonly #frames = make("ol", "stop-frames");
    readonly #variables = make("dl", "stop-variables");
    readonly #stop = make("section", "stop");
    readonly #break = make("button", "quiet", "Break");
    readonly #failure = make("p", "stop-failure");
    readonly #list = make("ul", "breakpoint-list");
    readonly #clearAll = make("button", "quiet", "Clear all");
    readonly #boxes = new Map<BreakpointCondition, HTMLInputElement>();
    #isStopped = false;

    /** @param section where all of it goes */
    constructor(section: HTMLElement, actions: DebuggerActions) {
        this.#actions = actions;
        this.#failure.setAttribute("role", "alert");
        this.#title.setAttribute("role", "status");
        const buttons = make(
            "p",
            "stop-moves",
            ...moves.map(({ move, label, keys }) => {
                const button = make("button", "quiet", label);
                button.title = keys;
                button.setAttribute("aria-keyshortcuts", keys);
                this.#onClick(button, () => actions.move(move));
                return button;
            }),
        );
        this.#frames.setAttribute("aria-label", "Frames, innermost first");
        this.#stop.append(
            this.#title,
            this.#message,
            buttons,
            make("h3", "", "Frames"),
            this.#frames,
            make("h3", "", "Variables of the frame"),
            this.#variables,
        );
        this.#break.title = "Stops the command that runs where it is";
        this.#onClick(this.#break, () => actions.breakIn());
        this.#list.setAttribute("role", "list");
        this.#onClick(this.#clearAll, () => actions.clearAll());
        section.append(
            this.#stop,
            this.#break,
            this.#failure,
            make("h3", "", "Stop on"),
            ...conditions.map(({ type, label }) => this.#makeBox(type, label)),
            make("h3", "", "Breakpoints"),
            this.#list,
            this.#clearAll,
        );
        this.show(undefined);
        this.showBreakpoints([]);
    }

    /** Whether a command is stopped. */
    get isStopped(): boolean {
        return this.#isStopped;
    }

    /** Does what a button of the panel does, and says there why it does not. */
    move(move: Move): void {
        this.#try(() => this.#actions.move(move));
    }

    show(stop: Stop | undefined): void {
        this.#isStopped = stop !== undefined;
        this.#stop.hidden = !stop;
        this.#break.hidden = stop !== undefined;
        this.#failure.textContent = "";
        if (!stop) {
            this.#title.textContent = "";
            return;
        }
        this.#title.textContent = `Stopped ${stop.reason ? ((reasons[stop.reason] as string | undefined) ?? "") : ""}`;
        this.#message.textContent = stop.message;
        this.#message.hidden = stop.message === "";
        const selected = stop.frames.findIndex((frame) => frame.selected);
        const rows = stop.frames.map((frame, index) => this.#makeFrame(frame, selected - index));
        this.#frames.replaceChildren(...rows.reverse());
        if (stop.variables) {
            this.#variables.replaceChildren(...stop.variables.flatMap(makeVariable));
        }
    }

    showBreakpoints(breakpoints: Breakpoints["breakpoints"]): void {
        const places = breakpoints.filter((breakpoint) => !("type" in breakpoint));
        const onConditions = breakpoints.filter((breakpoint) => "type" in breakpoint);
        for (const [type, box] of this.#boxes) {
            box.checked = onConditions.some((breakpoint) => isPlain(breakpoint) && breakpoint.type === type);
        }
        const listed = [...places, ...onConditions.filter((breakpoint) => !isPlain(breakpoint))];
        this.#list.replaceChildren(
            ...listed.map((breakpoint) => {
                const text = textOf(breakpoint);
                const button = make("button", "quiet", "×");
                button.title = "Clear";
                button.setAttribute("aria-label", `Clear the breakpoint ${text}`);
                this.#onClick(button, () => this.#actions.clear(breakpoint));
                return make("li", "", make("code", "", text), button);
            }),
        );
        if (listed.length === 0) {
            this.#list.append(
                make("li", "note", "None. Click on the number of a line that you are writing."),
            );
        }
        this.#clearAll.hidden = breakpoints.length === 0;
    }

    #makeBox(type: BreakpointCondition, label: string): HTMLElement {
        const box = make("input", "");
        box.type = "checkbox";
        box.addEventListener("change", () => {
            const change = box.checked ? this.#actions.set({ type }) : this.#actions.clear({ type });
            this.#try(async () => {
                try {
                    await change;
                } catch (error) {
                    box.checked = !box.checked;
                    throw error;
                }
            });
        });
        this.#boxes.set(type, box);
        return make("label", "switch", box, label);
    }

    #makeFrame({ fileName, functionName, lineNumber, sourceLine, selected }: DebugFrame, callsOut: number) {
        const button = make(
            "button",
            "stop-frame",
            make("span", "", `${functionName} `),
            make("span", "frame-place", `${fileName}:${String(lineNumber)}`),
            make("code", "", sourceLine),
        );
        button.setAttribute("aria-current", String(selected));
        this.#onClick(button, () => (selected ? Promise.resolve() : this.#actions.select(callsOut)));
        return make("li", "", button);
    }

    #onClick(button: HTMLButtonElement, action: () => Promise<void>): void {
        button.type = "button";
        button.addEventListener("click", () => {
            this.#try(action);
        });
    }

    #try(action: () => Promise<void>): void {
        this.#failure.textContent = "";
        action().catch((error: unknown) => {
            this.#failure.textContent = error instanceof Error ? error.message : String(error);
        });
    }
}

/** Whether a box stands for it. */
function isPlain(breakpoint: Breakpoint): breakpoint is ConditionBreakpoint {
    return "type" in breakpoint && breakpoint.messageId === undefined;
}

function makeVariable({ name, type, text }: DebugVariable): HTMLElement[] {
    const value = make("dd", "", make("code", "", text));
    value.title = type;
    return [make("dt", "", make("code", "", name)), value];
}

function textOf(breakpoint: Breakpoint & { readonly lineNumber?: number }): string {
    if ("type" in breakpoint) {
        return `${breakpoint.type} ${breakpoint.messageId ?? ""}`;
    }
    const { fileName, location, expression, lineNumber } = breakpoint;
    const place =
        location === undefined
            ? ""
            : "localFunction" in location
              ? `:${location.localFunction}`
              : `:${String(lineNumber ?? location.lineNumber)}`;
    return `${fileName}${place}${expression === undefined ? "" : ` if ${expression}`}`;
}
