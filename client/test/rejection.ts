/** The error with which the promise was rejected. */
export async function rejection(promise: PromiseLike<unknown>): Promise<Error> {
    try {
        await promise;
    } catch (error) {
        if (error instanceof Error) {
            return error;
        }
        throw new Error(`it was rejected with no error, but with ${String(error)}`, { cause: error });
    }
    throw new Error("it did not reject");
}
