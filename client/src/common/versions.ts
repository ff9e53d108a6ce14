/**
 * What differs between the versions of the protocol. All else of this package is written once, for both.
 */
import type { JsonObject } from "./checks.js";
import { UnsupportedError } from "./errors.js";
import type { RunOptions, SinkTraits } from "./RunOptions.js";
import { encodeYda, holdsTypeMembers, holdsWideIntegers, type YdaInput } from "./yda.js";

/** The versions that this package speaks, newest first. */
export const apiVersions = ["r24a0", "r22a0"] as const;

/** A version of the protocol. Of those that both sides speak, the server takes the newest. */
export type ApiVersion = (typeof apiVersions)[number];

/** What not every version has. */
export type Feature =
    | "cancelGroup"
    | "interrupt"
    | "cancelStatus"
    | "revertSinks"
    | "clearAllBreakpoints"
    | "unsuppressedOutput";

/** One version of the protocol. */
export interface Dialect {
    readonly lacks: ReadonlySet<Feature>;
    /** Of the text of commands: the channels below the client's prefix. */
    readonly textChannels: readonly string[];
    /**
     * @returns what goes into `rhsArgs`
     * @throws TypeError, RangeError or UnsupportedError for a value that cannot be sent
     */
    encodeArgument(value: YdaInput): unknown;
    runOptions(options: RunOptions): JsonObject;
    traits(traits: SinkTraits): JsonObject;
}

const r24a0: Dialect = {
    lacks: new Set(),
    textChannels: ["/text/output", "/text/error"],
    encodeArgument: encodeYda,
    runOptions: (options) => ({ ...options }),
    traits: (traits) => ({ ...traits }),
};

const r22a0: Dialect = {
    lacks: new Set<Feature>([
        "cancelGroup",
        "interrupt",
        "cancelStatus",
        "revertSinks",
        "clearAllBreakpoints",
        "unsuppressedOutput",
    ]),
    textChannels: ["/output", "/error"],
    encodeArgument: (value) => {
        if (holdsWideIntegers(value)) {
            throw new UnsupportedError("r22a0", "integers beyond 2^53 in arguments");
        }
        if (holdsTypeMembers(value)) {
            throw new UnsupportedError(
                "r22a0",
                'records in arguments with a member "ywtype" that is no text, or names integers',
            );
        }
        return JSON.parse(encodeYda(value)) as unknown;
    },
    runOptions: ({ commandWindowRowSize, commandWindowColSize, outSinkTraits, errSinkTraits, ...same }) => ({
        ...same,
        // The width feeds the number of rows: that is how the version has it.
        ...(commandWindowRowSize !== undefined && { commandWindowWidth: commandWindowRowSize }),
        ...(commandWindowColSize !== undefined && { commandWindowHeight: commandWindowColSize }),
        ...(outSinkTraits && { outSinkTraits: r22a0.traits(outSinkTraits) }),
        ...(errSinkTraits && { errSinkTraits: r22a0.traits(errSinkTraits) }),
    }),
    traits: (traits) =>
        Object.fromEntries(Object.entries(traits).map(([name, value]) => [`_${name}`, value])),
};

export const dialects: Readonly<Record<ApiVersion, Dialect>> = { r24a0, r22a0 };
