import "./style.css";

import { ActivityMonitor } from "./ActivityMonitor";
import { ActivityView } from "./ActivityView";
import type { Cell } from "./Cell";
import type { LineMark } from "./BreakpointLines";
import { DebuggerMonitor } from "./DebuggerMonitor";
import { DebuggerView, moveOfKey } from "./DebuggerView";
import { byId } from "./dom";
import { Editor } from "./Editor";
import { firstLine } from "./firstLine";
import { Gutter } from "./Gutter";
import { PromptIndicator } from "./PromptIndicator";
import { Session, type RunEvent, type SessionState, type Variable } from "./Session";
import { keepToken, takeToken } from "./token";
import { Transcript } from "./Transcript";
import { VariablesMonitor } from "./VariablesMonitor";
import { VariablesView } from "./VariablesView";

const status = byId("status", HTMLElement);
const notice = byId("notice", HTMLElement);
const connectForm = byId("connect", HTMLFormElement);
const tokenField = byId("token-field", HTMLElement);
const tokenInput = byId("token", HTMLInputElement);
const welcome = byId("welcome", HTMLElement);
const runButton = byId("run", HTMLButtonElement);

const transcript = new Transcript(byId("transcript", HTMLElement), byId("scroller", HTMLElement));
const commandArea = byId("command", HTMLTextAreaElement);
const gutter = new Gutter({
    numbers: byId("line-numbers", HTMLElement),
    area: commandArea,
    conditionRow: byId("condition-row", HTMLElement),
    conditionLine: byId("condition-line", HTMLElement),
    condition: byId("condition", HTMLInputElement),
});
const editor = new Editor(commandArea, byId("prompt", HTMLFormElement), gutter, (command, breakpoints) => {
    void run(command, breakpoints);
});
/** So many commands are proposed for a breakpoint. */
const maxKnownFiles = 20;
/** Cells by the identifiers of their requests, for text that comes after the end. */
const cells = new Map<string, Cell>();
const session = new Session(new URL("./", location.href).href, {
    onState: showState,
    onLateText: (message) => {
        const cell = cells.get(message.requestID);
        if (cell) {
            transcript.append(cell, message);
        }
    },
    onEngineText: (chunk) => {
        welcome.hidden = true;
        transcript.appendEngineText(chunk);
    },
    onEngineTextFailed: (error) => {
        transcript.failEngineText(error);
    },
    onPrompt: (state) => {
        promptIndicator.show(state);
    },
    onWorkspace: () => {
        variablesMonitor.changed();
    },
    onStopped: (stop) => {
        debuggerView.endStop();
        debuggerMonitor.stopped(stop);
    },
    onResumed: (resume) => {
        debuggerView.endStop();
        debuggerMonitor.resumed(resume);
    },
    onBreakpoints: (breakpoints) => {
        debuggerView.showBreakpoints(breakpoints);
    },
});
const debuggerView = new DebuggerView(byId("debugger", HTMLElement), {
    move: (move, signal) => session.debugger[move]({ signal }),
    select: async (callsOut, signal) => {
        await (callsOut > 0
            ? session.debugger.up(callsOut, { signal })
            : session.debugger.down(-callsOut, { signal }));
        await debuggerMonitor.look();
    },
    breakIn: () => session.debugger.breakIn(),
    set: (breakpoint) => session.debugger.setBreakpoint(breakpoint),
    clear: (breakpoint) => session.debugger.clearBreakpoint(breakpoint),
    clearAll: () => session.debugger.clearAllBreakpoints(),
    showPlace: (place) => {
        transcript.markLine(place);
    },
    knownFiles: () =>
        transcript.namedCells
            .slice(0, maxKnownFiles)
            .map(({ fileName, command }) => ({ name: fileName, label: firstLine(command) })),
});
const debuggerMonitor = new DebuggerMonitor(
    { stack: () => session.debugger.stack(), locals: () => session.debugger.locals() },
    (stop) => {
        if (stop && !debuggerView.isStopped) {
            showDebugger(true);
        }
        debuggerView.show(stop);
    },
);
const promptIndicator = new PromptIndicator(byId("engine-state", HTMLElement), (state) => {
    variablesMonitor.isBusy = state === "busy" || state === "paused";
});
const variablesView = new VariablesView(byId("variables", HTMLElement), (name) => session.describe(name));
const variablesMonitor = new VariablesMonitor<Variable[]>(
    () => session.listVariables(),
    (variables) => {
        variablesView.show(variables);
    },
);
const activityView = new ActivityView(byId("activity", HTMLElement), {
    stop,
    interrupt: () => session.interrupt(),
});
const monitor = new ActivityMonitor<Cell>(
    { list: () => session.listCommands(), mark: () => session.mark() },
    (activity) => {
        activityView.show(activity);
        for (const { own } of activity.running) {
            own?.showStage("running");
        }
        for (const { own } of activity.waiting) {
            own?.showStage("waiting");
        }
    },
);
/** The requests of the cells that have not ended. */
const requests = new Map<Cell, ReturnType<Session["run"]>>();

async function run(command: string, breakpoints: readonly LineMark[]): Promise<void> {
    welcome.hidden = true;
    const cell = transcript.add(command, stop);
    const named = nameCell(cell);
    try {
        if (breakpoints.length > 0) {
            await session.setBreakpoints(await named, breakpoints);
        }
        const request = monitor.send(cell, () =>
            session.run(command, cell.output.columns, {
                onText: (chunk) => {
                    transcript.append(cell, chunk);
                },
                onEvent: (event) => {
                    showEvent(cell, event);
                },
            }),
        );
        requests.set(cell, request);
        forgetRemovedCells();
        cells.set(request.requestID, cell);
        await request;
        transcript.finish(cell);
    } catch (error) {
        transcript.finish(cell, asError(error));
    } finally {
        requests.delete(cell);
        monitor.ended(cell);
        variablesMonitor.changed(); // also within a value, of which no event tells
        if (debuggerView.isStopped) {
            void debuggerMonitor.look(); // it may have changed variables of the stopped one
        }
    }
}

/** Nobody waits for the name unless breakpoints need it: what is asked first is done first. */
function nameCell(cell: Cell): Promise<string> {
    const named = session.nameCommand(cell.command);
    named.then(
        (fileName) => {
            transcript.nameCell(cell, fileName);
        },
        () => undefined, // its lines are not marked, then
    );
    return named;
}

function showEvent(cell: Cell, event: RunEvent): void {
    switch (event.name) {
        case "ylutil::io::StructuredOutputEvent":
            transcript.display(cell, event.data);
            break;
        case "yvm::ProgressEvent":
            transcript.showProgress(cell, event.data);
            break;
        case "services::prompt::InputRequestEvent": {
            // Whoever is writing something is not torn away from it.
            const takesFocus = editor.isEmpty && !hasSelection();
            const field = transcript.ask(
                cell,
                event.data,
                (id, line) => session.answer(id, line),
                focusEditorUnlessElsewhere,
            );
            if (takesFocus) {
                field.focus();
            }
            break;
        }
        case "ylutil::prompt::PromptEvent":
            if (event.data.state === "busy") {
                cell.goOn();
            }
            break;
        case "services::io::CLCEvent":
            transcript.clearFor(cell);
            break;
        case "services::io::HomeEvent":
            transcript.goHome(cell);
            break;
    }
}

/** Where a field that had the focus has gone, the next thing to be written is a command. */
function focusEditorUnlessElsewhere(): void {
    if (document.activeElement === document.body) {
        editor.focus();
    }
}

function forgetRemovedCells(): void {
    for (const [requestID, cell] of cells) {
        if (!transcript.has(cell)) {
            cells.delete(requestID);
        }
    }
}

/** Asks the engine to stop the cell's command. How it ends is told by the command's own answer. */
function stop(cell: Cell): void {
    const request = requests.get(cell);
    if (request) {
        cell.showStopRequested();
        request.cancel({ interrupt: true }).catch((error: unknown) => {
            cell.showStopFailed(asError(error));
        });
    }
}

function asError(error: unknown): Error {
    return error instanceof Error ? error : new Error(String(error));
}

function showState(state: SessionState): void {
    const texts = {
        connecting: "connecting",
        attached: "attached",
        lost: "reconnecting",
        ended: "not connected",
    };
    status.textContent = texts[state.kind];
    status.dataset["state"] = state.kind;
    editor.enabled = state.kind === "attached";
    runButton.disabled = !editor.enabled;
    monitor.isAttached = editor.enabled;
    promptIndicator.show(undefined); // until the engine tells
    debuggerView.endStop();
    debuggerMonitor.forget();
    if (state.kind === "attached") {
        void debuggerMonitor.look();
    }
    watchVariables();
    connectForm.hidden = state.kind !== "ended";
    if (state.kind === "ended") {
        cells.clear(); // the next client counts its requests anew
        transcript.forgetNames(); // and another engine its commands
        notice.textContent = state.reason;
        tokenField.hidden = !state.wantsToken;
        if (state.wantsToken) {
            tokenInput.focus();
        }
    } else if (state.kind === "attached") {
        editor.focus();
    }
}

let token = takeToken(window);

connectForm.addEventListener("submit", (event) => {
    event.preventDefault();
    if (tokenInput.value !== "") {
        token = tokenInput.value.trim();
        tokenInput.value = "";
        keepToken(token, sessionStorage);
    }
    void session.start(token);
});

const engineTextBox = byId("engine-text", HTMLInputElement);
const engineTextKey = "showsEngineText";
engineTextBox.checked = sessionStorage.getItem(engineTextKey) !== null;
session.wantsEngineText = engineTextBox.checked;
engineTextBox.addEventListener("change", () => {
    session.wantsEngineText = engineTextBox.checked;
    if (engineTextBox.checked) {
        sessionStorage.setItem(engineTextKey, "");
    } else {
        sessionStorage.removeItem(engineTextKey);
    }
});

const variablesButton = byId("variables-button", HTMLButtonElement);
const variablesPanel = byId("variables-panel", HTMLElement);
const variablesKey = "showsVariables";
showVariables(sessionStorage.getItem(variablesKey) !== null);
variablesButton.addEventListener("click", () => {
    showVariables(variablesPanel.hidden);
    if (variablesPanel.hidden) {
        sessionStorage.removeItem(variablesKey);
    } else {
        sessionStorage.setItem(variablesKey, "");
    }
});

function showVariables(isShown: boolean): void {
    variablesPanel.hidden = !isShown;
    variablesButton.setAttribute("aria-expanded", String(isShown));
    watchVariables();
}

function watchVariables(): void {
    variablesMonitor.isWanted = editor.enabled && !document.hidden && !variablesPanel.hidden;
}

const debuggerButton = byId("debugger-button", HTMLButtonElement);
const debuggerPanel = byId("debugger-panel", HTMLElement);
debuggerButton.addEventListener("click", () => {
    showDebugger(debuggerPanel.hidden);
});

function showDebugger(isShown: boolean): void {
    debuggerPanel.hidden = !isShown;
    debuggerButton.setAttribute("aria-expanded", String(isShown));
}

byId("clear", HTMLButtonElement).addEventListener("click", () => {
    transcript.clear();
    editor.focus();
});

addEventListener("keydown", (event) => {
    const move = moveOfKey(event);
    if (move && debuggerView.isStopped) {
        event.preventDefault();
        debuggerView.move(move);
        return;
    }
    if (event.ctrlKey && event.key === "l") {
        event.preventDefault();
        transcript.clear();
    } else if (event.ctrlKey && event.key === "c" && !hasSelection()) {
        const [oldest] = requests.keys();
        if (oldest) {
            event.preventDefault();
            stop(oldest);
        }
    }
});

/** Whether the keys for copying have something to copy. */
function hasSelection(): boolean {
    const { activeElement } = document;
    return activeElement instanceof HTMLTextAreaElement || activeElement instanceof HTMLInputElement
        ? activeElement.selectionStart !== activeElement.selectionEnd
        : getSelection()?.isCollapsed === false;
}

monitor.isVisible = !document.hidden;
document.addEventListener("visibilitychange", () => {
    monitor.isVisible = !document.hidden;
    watchVariables();
});

addEventListener("pagehide", () => {
    session.stop();
});

void session.start(token);
