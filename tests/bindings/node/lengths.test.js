// Lengths that cannot be true, for every operation that writes to a buffer.
'use strict';
const assert = require('assert/strict');
const {beforeEach, test} = require('node:test');
const {KestaError, description, extremes, failureOf, operations, refresh, standIn} =
    require('./support');

const {library} = standIn;
beforeEach(refresh);

const lies = [0, 1, 3, 5, 17, 65, 5000, 70000, 0x7fffffff, 0x80000000, 0xffffffff];
const outputs = description.filter(({output}) => output && output.rule !== 'event');

/** What comes out, as bytes, or the failure. */
async function run(entry) {
    try {
        return Buffer.from(await library[operations[entry.name].operation](...extremes(entry).values));
    } catch (error) {
        assert.ok(error instanceof KestaError, error.stack);
        return error;
    }
}

function assertHarmless(found, lie) {
    if (found instanceof KestaError) {
        assert.ok([-404, -300].includes(found.code) && found.message, `${lie}: ${found}`);
        return;
    }
    // A record is followed by the zeros of the buffer that it lay in.
    assert.ok('text'.startsWith(found.toString('latin1', 0, 4)), `${lie}: ${found}`);
    assert.ok(found.subarray(4).every((byte) => byte === 0), `${lie}: ${found}`);
}

for (const entry of outputs) {
    test(`${entry.name} survives lies`, async () => {
        for (const told of [['reported'], ['probed'], ['reported', 'probed']]) {
            for (const lie of lies) {
                standIn.reset();
                standIn.tell({text: 'text', message: 'text'});
                for (const name of told) standIn.tell({[name]: lie});
                assertHarmless(await run(entry), lie);
                standIn.tell({code: -404});
                assertHarmless(await run(entry), lie);
            }
        }
    });

    // The stand-in writes no more of requests and messages than it keeps.
    if (entry.output.rule === 'kept' || entry.name === 'GetErrorMsg') continue;
    test(`${entry.name} notices what is written beyond the capacity`, async () => {
        standIn.tell({text: 'text', beyond: 16});
        const found = await run(entry);
        assert.equal(found.kind, 'buffer');
        assert.match(found.message, /wrote beyond/);
    });
}

test('a probe beyond what the input can give asks for no gigabytes', async () => {
    for (const entry of outputs.filter(({output}) => output.rule === 'probed')) {
        for (const lie of [0x04000001, 0x7fffffff, 0xffffffff]) {
            standIn.reset();
            standIn.tell({probed: lie});
            assert.ok((await run(entry)).message.includes(String(lie)), entry.name);
        }
    }
});

test('a text that fills its capacity is given whole', async () => {
    standIn.tell({text: 'a'.repeat(512)});
    assert.equal(await library.getLabel('SN'), 'a'.repeat(512));
});

test('a plain text that a NUL cuts short is a failure', async () => {
    standIn.tell({text: 'plain\0text'});
    const failed = await failureOf(library.asymDec('SN', 3, 2, 'cipher'));
    assert.equal(failed.kind, 'unsupported');
    assert.match(failed.message, /10 bytes/);
    standIn.tell({text: 'plain', reported: 6});
    assert.equal(await library.asymDec('SN', 3, 2, 'cipher'), 'plain');
});

test('requests count although the code is another thread\'s', async () => {
    standIn.tell({text: 'R1||R2', fetchCode: 0x5B71});
    assert.equal(await library.generateCertRequest('SN', 'CertType(1)'), 'R1||R2');
    standIn.tell({fetchLost: 1});
    assert.equal((await failureOf(library.generateCertRequest('SN', 'CertType(1)'))).code, -404);
});

test('an endless message is replaced', async () => {
    standIn.tell({code: 5, message: 'm'.repeat(100000)});
    assert.match((await failureOf(library.verifyPin('SN'))).message, /no text/);
});
