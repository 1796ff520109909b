// The loaded library: its functions, and how their calls are made on the calling thread or elsewhere.
'use strict';
const koffi = require('koffi');
const {CODES, failure, say} = require('./codes');
const operations = require('./operations.json');

const FILE_NAME = 'libkesta_unified_zrkukey.so';
// A token library may want as much stack as a thread has; what is offered by default is little.
const STACK = 8 << 20;
const SMALLEST_STACK = 1 << 20;

if (koffi.config().async_stack_size < STACK) {
    try {
        koffi.config({sync_stack_size: STACK, async_stack_size: STACK});
    } catch (error) {
        // Another user of koffi was first. Library.load says so where its stack would not do.
    }
}

/** The library's functions with their types, as the header declares them. Never unloaded: a thread may
 * wait inside. */
function load(path = FILE_NAME) {
    if (koffi.config().async_stack_size < SMALLEST_STACK) {
        throw new Error('kesta-ukey must be required before anything loads a library by koffi');
    }
    const functions = {};
    let library;
    try {
        library = koffi.load(path);
    } catch (error) {
        throw failure(CODES.notBound, 'Load', `${path}: ${error.message}`);
    }
    for (const [name, facts] of Object.entries(operations)) {
        try {
            functions[name] = library.func(facts.prototype);
        } catch (error) {
            throw failure(CODES.notBound, 'Load', say('NoFunction', path, name));
        }
    }
    let flag;
    try {
        flag = library.symbol('g_initFlag', 'bool');
    } catch (error) {
        throw failure(CODES.notBound, 'Load', say('NoVariable', path, 'g_initFlag'));
    }
    return {functions, initialised: () => koffi.decode(flag, 'bool')};
}

/** The calls of an operation, on this thread. */
function callHere(calls) {
    let step = calls.next();
    while (!step.done) {
        const [called, ...values] = step.value;
        step = calls.next(called(...values));
    }
    return step.value;
}

// What the calls in progress write to.
const inProgress = new Set();

/** The same on a thread of the pool, one after the other. */
function callElsewhere(calls) {
    return new Promise((resolve, reject) => {
        const proceed = (code) => {
            let step;
            try {
                step = calls.next(code);
            } catch (error) {
                reject(error);
                return;
            }
            if (step.done) {
                resolve(step.value);
                return;
            }
            const [called, ...values] = step.value;
            inProgress.add(values);
            called.async(...values, (error, answer) => {
                inProgress.delete(values);
                if (error) reject(error);
                else proceed(answer);
            });
        };
        proceed();
    });
}

module.exports = {callElsewhere, callHere, load, operations};
