import type {
    Breakpoint,
    BreakpointCondition,
    Breakpoints,
    ConditionBreakpoint,
    DebugFrame,
    DebugVariable,
    StopReason,
} from "yvm-client";

import { BreakpointForm, type KnownFile } from "./BreakpointForm";
import { conditionTexts, textOf } from "./breakpointText";
import type { Stop } from "./DebuggerMonitor";
import { make } from "./dom";

/** How a stopped command can be moved on. */
export type Move = "resume" | "step" | "stepIn" | "stepOut" | "quit";

/** What a person can ask for; each rejects when it cannot be had. */
export interface DebuggerActions {
    /** @param signal takes it back while nothing has come of it */
    move(move: Move, signal: AbortSignal): Promise<void>;
    /** Selects another frame: so many calls out, or in if negative. The signal is as of `move`. */
    select(callsOut: number, signal: AbortSignal): Promise<void>;
    breakIn(): Promise<void>;
    set(breakpoint: Breakpoint): Promise<void>;
    clear(breakpoint: Breakpoint): Promise<void>;
    clearAll(): Promise<void>;
    /** Shows where the selected frame stands, beside the panel; undefined once nothing is stopped. */
    showPlace(place: DebugFrame | undefined): void;
    /** What to propose where a file is asked for, best first. */
    knownFiles(): readonly KnownFile[];
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

/** Milliseconds until the panel believes that nothing is stopped any more. */
const hideDelay = 150;

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
    readonly #break = make("button", "quiet", "Break into what runs");
    readonly #failure = make("p", "stop-failure");
    readonly #list = make("ul", "breakpoint-list");
    readonly #clearAll = make("button", "quiet", "Clear all");
    readonly #form: BreakpointForm;
    readonly #boxes = new Map<BreakpointCondition, HTMLInputElement>();
    #isStopped = false;
    /** Whether the stop that is shown has been moved on. */
    #isMoving = false;
    /** Takes back what was asked of the stop that is shown. */
    #asked = new AbortController();
    #hiding: ReturnType<typeof setTimeout> | undefined;
    /** The button of the stop that had the focus when that was hidden. */
    #leftByFocus: HTMLButtonElement | undefined;

    /** @param section where all of it goes */
    constructor(section: HTMLElement, actions: DebuggerActions) {
        this.#actions = actions;
        this.#form = new BreakpointForm(actions);
        this.#failure.setAttribute("role", "alert");
        this.#title.setAttribute("role", "status");
        const buttons = make(
            "p",
            "stop-moves",
            ...moves.map(({ move, label, keys }) => {
                const button = make("button", "quiet", label);
                button.title = keys;
                button.setAttribute("aria-keyshortcuts", keys);
                button.type = "button";
                button.addEventListener("click", () => {
                    this.move(move);
                });
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
        this.#break.title = "Stops it where it is, to be looked at";
        this.#onClick(this.#break, () => actions.breakIn());
        this.#list.setAttribute("role", "list");
        this.#clearAll.title = "Also what is ticked under Stop on";
        this.#onClick(this.#clearAll, () => actions.clearAll());
        section.append(
            this.#stop,
            this.#break,
            this.#failure,
            make("h3", "", "Stop on"),
            ...Object.entries(conditionTexts).map(([type, label]) =>
                this.#makeBox(type as BreakpointCondition, label),
            ),
            make("h3", "", "Breakpoints"),
            this.#list,
            this.#clearAll,
            this.#form.element,
        );
        this.#stop.hidden = true;
        this.showBreakpoints([]);
    }

    /** Whether a command is stopped. */
    get isStopped(): boolean {
        return this.#isStopped;
    }

    /**
     * Does what a button of the panel does, and says there why it does not. A stop is moved on once: what is
     * pressed twice would wait for the next stop, and pass it over.
     */
    move(move: Move): void {
        if (this.#isStopped && !this.#isMoving) {
            this.#isMoving = true;
            this.#askOfStop(
                (signal) => this.#actions.move(move, signal),
                () => {
                    this.#isMoving = false;
                },
            );
        }
    }

    /** The stop is over, or another has come upon it. What still waits was not meant for another stop. */
    endStop(): void {
        this.#asked.abort();
        this.#asked = new AbortController();
        this.#isMoving = false;
    }

    show(stop: Stop | undefined): void {
        this.#isStopped = stop !== undefined;
        this.#failure.textContent = "";
        clearTimeout(this.#hiding);
        if (!stop) {
            // The next stop may come at once, behind a step: buttons that vanished would lose the focus.
            this.#hiding = setTimeout(() => {
                this.#showStop(false);
            }, hideDelay);
            return;
        }
        this.#showStop(true);
        this.#title.textContent = stop.reason
            ? `Stopped ${(reasons[stop.reason] as string | undefined) ?? ""}`
            : "Stopped";
        this.#message.textContent = stop.message;
        this.#message.hidden = stop.message === "";
        const selected = stop.frames.findIndex((frame) => frame.selected);
        this.#actions.showPlace(stop.frames[selected]);
        const rows = stop.frames.map((frame, index) => this.#makeFrame(frame, selected - index));
        replaceItems(this.#frames, rows.reverse());
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
        const hasFocus = [this.#list, this.#clearAll].some((part) => part.contains(document.activeElement));
        const listed = [...places, ...onConditions.filter((breakpoint) => !isPlain(breakpoint))];
        replaceItems(
            this.#list,
            listed.map((breakpoint) => {
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
                make(
                    "li",
                    "note",
                    "None. Click on the number of a line that you are writing, or add one here.",
                ),
            );
        }
        this.#clearAll.hidden = breakpoints.length === 0;
        this.#form.clearNote();
        if (hasFocus && this.#clearAll.hidden) {
            this.#form.focus();
        }
    }

    #showStop(isShown: boolean): void {
        const [gone, come] = isShown ? [this.#break, this.#stop] : [this.#stop, this.#break];
        const { activeElement } = document;
        const hasFocus = gone.contains(activeElement);
        const isNew = come.hidden;
        come.hidden = false;
        gone.hidden = true;
        if (hasFocus && !isShown) {
            this.#leftByFocus = activeElement?.closest("button") ?? undefined;
            this.#break.focus();
        } else if (hasFocus) {
            // Who steps on by the keyboard is not to find another button, however long the step has taken.
            const isThere = this.#leftByFocus?.isConnected === true;
            (isThere ? this.#leftByFocus : this.#stop.querySelector("button"))?.focus();
        }
        if (!isShown) {
            this.#title.textContent = "";
            this.#actions.showPlace(undefined);
        } else if (isNew) {
            this.#title.scrollIntoView({ block: "nearest" }); // somebody may have scrolled to what is below
        }
    }

    #makeBox(type: BreakpointCondition, label: string): HTMLElement {
        const box = make("input", "");
        box.type = "checkbox";
        box.addEventListener("change", () => {
            this.#try(async () => {
                try {
                    await (box.checked ? this.#actions.set({ type }) : this.#actions.clear({ type }));
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
        button.type = "button";
        button.addEventListener("click", () => {
            if (this.#isStopped && !selected) {
                this.#askOfStop((signal) => this.#actions.select(callsOut, signal));
            }
        });
        return make("li", "", button);
    }

    /** @param onFailed called if it cannot be had of this stop */
    #askOfStop(ask: (signal: AbortSignal) => Promise<void>, onFailed?: () => void): void {
        const { signal } = this.#asked;
        this.#try(async () => {
            try {
                await ask(signal);
            } catch (error) {
                if (!signal.aborted) {
                    onFailed?.();
                    throw error;
                }
            }
        });
    }

    #onClick(button: HTMLButtonElement, action: () => Promise<void>): void {
        button.type = "button";
        button.addEventListener("click", () => {
            this.#try(action);
        });
    }

    #try(action: () => Promise<void>): void {
        this.#failure.textContent = "";
        const tried = async () => {
            await action(); // which may also throw before it waits
        };
        tried().catch((error: unknown) => {
            this.#failure.textContent = error instanceof Error ? error.message : String(error);
        });
    }
}

/** Replaces the items of a list. Where a button of one had the focus, that of the one in its place gets it. */
function replaceItems(list: HTMLElement, items: readonly HTMLElement[]): void {
    const place = [...list.children].findIndex((item) => item.contains(document.activeElement));
    list.replaceChildren(...items);
    if (place >= 0) {
        items[Math.min(place, items.length - 1)]?.querySelector("button")?.focus();
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
