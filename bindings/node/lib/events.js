// Keys that come and go: one wait at a time in a process, on a thread of the pool.
'use strict';
const {CODES, failure, say} = require('./codes');
const {callElsewhere} = require('./native');
const {ways} = require('./calls');

const STOP_INTERVAL = 5;

let current;  // the wait in progress, or undefined

/** One wait. stop() ends it, and is repeated, since one that comes before the wait has begun its loop
 * is lost. */
class Wait {
    constructor(library) {
        if (current) {
            throw failure(CODES.badArgument, 'WaitForKeyEvent', say('WaitInProgress'), 'busy');
        }
        current = this;
        this.library = library;
        this.stopping = false;
    }

    async next() {
        // It needs the token library for nothing, but would bind it beside other operations.
        if (!this.library.initialised()) await this.library.initialize().catch(() => {});
        if (this.stopping) return {kind: 'stopped', mediaId: '', code: 0};
        this.running = callElsewhere(ways.event(this.library, 'WaitForKeyEvent'));
        try {
            return await this.running;
        } finally {
            this.running = undefined;
        }
    }

    async stop() {
        this.stopping = true;
        while (this.running) {
            this.library.functions.StopDetectUKey();
            await new Promise((resolve) => setTimeout(resolve, STOP_INTERVAL));
        }
    }

    end() {
        if (current === this) current = undefined;
    }
}

// The process could not end while a thread of the pool waits.
process.on('exit', () => {
    const pause = new Int32Array(new SharedArrayBuffer(4));
    for (let times = 0; current && current.running && times < 10; ++times) {
        current.library.functions.StopDetectUKey();
        Atomics.wait(pause, 0, 0, STOP_INTERVAL);
    }
});

/** One event. */
async function waitOnce(library, {signal} = {}) {
    if (signal) signal.throwIfAborted();
    const wait = new Wait(library);
    const aborted = () => wait.stop();
    if (signal) signal.addEventListener('abort', aborted);
    try {
        const event = await wait.next();
        if (signal) signal.throwIfAborted();
        return event;
    } finally {
        if (signal) signal.removeEventListener('abort', aborted);
        wait.end();
    }
}

/** `for await (const event of events)`, until return() or the signal, which rejects as it does in all
 * of Node. */
class Events {
    #wait;
    #found = [];
    #asking = [];
    #over;
    #signal;
    #aborted = () => this.#close({reject: this.#signal.reason});

    constructor(library, {signal} = {}) {
        if (signal) signal.throwIfAborted();
        this.#wait = new Wait(library);
        this.#signal = signal;
        if (signal) signal.addEventListener('abort', this.#aborted);
        this.#ended = this.#loop();
    }

    #ended;

    async #loop() {
        try {
            while (!this.#wait.stopping) {
                const event = await this.#wait.next();
                if (event.kind !== 'stopped' && !this.#wait.stopping) this.#give({event});
            }
        } catch (error) {
            this.#give({reject: error});
            this.#over ||= {};
        } finally {
            this.#wait.end();
        }
        if (this.#signal) this.#signal.removeEventListener('abort', this.#aborted);
        this.#over ||= {};
        for (const asking of this.#asking.splice(0)) this.#answer(asking, this.#over);
    }

    #give(found) {
        const asking = this.#asking.shift();
        if (asking) this.#answer(asking, found);
        else this.#found.push(found);
    }

    #answer({resolve, reject}, found) {
        if (found.reject) reject(found.reject);
        else resolve({value: found.event, done: !found.event});
    }

    async #close(over) {
        this.#over ||= over;
        await Promise.all([this.#wait.stop(), this.#ended]);
    }

    next() {
        return new Promise((resolve, reject) => {
            const asking = {resolve, reject};
            if (this.#found.length) this.#answer(asking, this.#found.shift());
            else if (this.#over) this.#answer(asking, this.#over);
            else this.#asking.push(asking);
        });
    }

    async return(value) {
        this.#found = [];
        await this.#close({});
        this.#over = {};
        return {value, done: true};
    }

    [Symbol.asyncIterator]() {
        return this;
    }
}

module.exports = {Events, waitOnce};
