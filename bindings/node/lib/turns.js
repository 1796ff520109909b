// Operations take turns: the library has no lock and wants one call at a time. One thread of a process
// uses this package; other threads would have turns of their own.
'use strict';
const {CODES, failure, say} = require('./codes');

const LONGEST_TIMER = 2 ** 31 - 1;
const queue = [];
let taken = false;

function busy(operation) {
    return failure(CODES.badArgument, operation, say('Busy'), 'busy');
}

/** For who cannot wait. */
function enterAtOnce(operation) {
    if (taken) throw busy(operation);
    taken = true;
}

/** Resolves when it is this operation's turn; after its patience, in milliseconds, it is busy. An
 * operation that is aborted while it waits is never called. */
function enter(operation, patience, signal) {
    if (!taken) {
        taken = true;
        return Promise.resolve();
    }
    return new Promise((resolve, reject) => {
        let timer;
        const leaveQueue = (reason) => {
            queue.splice(queue.indexOf(entry), 1);
            reject(reason);
        };
        const aborted = () => leaveQueue(signal.reason);
        const settled = (action) => (reason) => {
            clearTimeout(timer);
            if (signal) signal.removeEventListener('abort', aborted);
            action(reason);
        };
        const entry = settled(resolve);
        queue.push(entry);
        if (signal) signal.addEventListener('abort', aborted);
        if (patience !== undefined && patience <= LONGEST_TIMER) {
            timer = setTimeout(settled(() => leaveQueue(busy(operation))), patience);
        }
    });
}

function leave() {
    const next = queue.shift();
    if (next) next();
    else taken = false;
}

module.exports = {enter, enterAtOnce, isTaken: () => taken, leave};
