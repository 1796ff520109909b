// What a client in TypeScript may and may not write; it is checked, not run.
import {Codes, KestaError, Key, Kind, Library, CertType, events, requestInfo} from 'kesta-ukey';

async function use(signal: AbortSignal): Promise<string[]> {
    const library: Library = Library.load();
    const key: Key = await library.presentKey();
    const name: string = await library.getCertDn(key.serial, 1, 2);
    const version: string = library.sync.getDllVersion();
    const tries = await key.pinTries();
    const left: number | undefined = tries?.left;
    const made: string = await library.generateCertRequest(key.serial, requestInfo([{certType: CertType.signing}]));
    for await (const event of events(library, {signal})) {
        const kind: 'arrival' | 'removal' | 'stopped' | 'other' = event.kind;
        if (kind === 'removal') break;
    }
    try {
        await key.sign('pay', 'Pay?', {signal, keyType: 7});
    } catch (error) {
        if (error instanceof KestaError) {
            const kind: Kind = error.kind;
            return [kind, error.operation, error.message, String(error.code)];
        }
    }
    // @ts-expect-error a serial number is a text
    await library.verifyPin(5);
    // @ts-expect-error the second number is missing
    await library.getCertDn(key.serial, 1);
    // @ts-expect-error there is no such kind
    const wrong: Kind = 'pin_wrong';
    // @ts-expect-error a wait would hold up the event loop
    library.sync.waitForKeyEvent();
    return [name, version, String(left), made, Codes.inUse().kindOf(0), wrong];
}

export {use};
