"""Writes copies of the service's sources with faults planted into them, each behind a switch of its own.

The simulation must find every one of them: that is how its checks prove themselves. A text that a fault changes must
stand in its source exactly once, so that a fault which no longer fits its source ends the build and not the proof.

    plant.py SOURCE_ROOT OUTPUT_FOLDER     writes the copies, and Faults.inc with "FAULT(number, Name)" lines
                                           and "RACING_FAULT(number, Name)" ones
    plant.py --sources                     prints the sources that are copied, separated by semicolons
"""
import os
import re
import sys

FEED = "AudioFeeder/PipeFeed.cpp"
CONTENT = "AudioFeeder/PipeFeedContent.cpp"
PLAYLIST = "AudioFeeder/Playlist.cpp"
VOLUME = "AudioFeeder/VolumeControl.cpp"
MANAGER = "AudioFeeder/PipeManager.cpp"
LISTENER = "AudioFeeder/PipeListener.cpp"
DISPATCHER = "AudioFeeder/UpdateDispatcher.cpp"
ENGINE = "Projects/Common/VoIPFileEngine/"
TABLES = "ConfigClient/ObjectList.cpp"
TRANSPORT = ENGINE + "PipeTransport.cpp"
PIPE = ENGINE + "PipeMusicBox.cpp"
LOG = "ServiceProcess/Log"

# Name, source, the text there, what stands in its place; P is the fault's own switch, ONE_IN(n) that each n-th time.
FAULTS = [
    ("ABlockIsLost", FEED, "SendToAll(block);", "if (!ONE_IN(40)) SendToAll(block);"),
    ("ABlockIsSentTwice", FEED, "if (connection->Send(block, BlockSamples)) {",
     "if ((!ONE_IN(40) || connection->Send(block, BlockSamples)) && connection->Send(block, BlockSamples)) {"),
    ("AHeldPositionIsForgotten", FEED, "            restart = true;  // nothing is read",
     "            if (P && !restart) ProduceBlock(events);\n            restart = true;  // nothing is read"),
    ("ALatePumpDoesNotCatchUp", FEED, "base += kBlockMilliseconds;", "base = P ? NowMilliseconds() : base + kBlockMilliseconds;"),
    ("TheHeadStartIsABlockShort", FEED, "            restart = false;",
     "            if (P) base += kBlockMilliseconds;\n            restart = false;"),
    ("AnEventIsDoubled", FEED, "OnContentEvent(event);\n    events.clear();",
     "{ OnContentEvent(event); if (P) OnContentEvent(event); }\n    events.clear();"),
    ("AClientThatLeavesTakesTheNextOneWithIt", FEED, "connection = connections_.erase(connection);",
     "connection = connections_.erase(connection);\n"
     "        if (P && connection != connections_.end()) connection = connections_.erase(connection);"),
    ("TheEndOfAPumpIsNotTold", FEED, 'ORV_LOG(Info) << logPrefix_ << "closed";',
     'if (!P) ORV_LOG(Info) << logPrefix_ << "closed";'),
    ("TheRampEndsOneStepEarly", ENGINE + "Mixer.cpp", "std::abs(target - state.rampCounter)",
     "std::abs(target + (P && target == MainGain::Ducked ? 1 : 0) - state.rampCounter)"),
    ("TheDuckRoundsTheOtherWay", ENGINE + "Mixer.cpp", "Sum(block.at[i] >> 3, over.at[i])",
     "Sum(P ? block.at[i] / 8 : block.at[i] >> 3, over.at[i])"),
    ("TheMixIsClipped", ENGINE + "Mixer.cpp", "return static_cast<i16>(a + b);",
     "return static_cast<i16>(P ? std::clamp(a + b, -32768, 32767) : a + b);"),
    ("TheLimiterMissesAPeakThatIsOneHigher", VOLUME, "if (magnitude > peak_) {", "if (magnitude > peak_ + (P ? 1 : 0)) {"),
    ("TheGainOfAFileGoesOnInTheNext", VOLUME, "if (!inUse_.autogain) Reset();", "if (!inUse_.autogain && !P) Reset();"),
    ("ThePeakDoesNotDecay", VOLUME, "if (inUse_.autogain) peak_ =", "if (inUse_.autogain && !P) peak_ ="),
    ("ADrawNeverGivesAPause", CONTENT, "Uniform(0, static_cast<i32>(count))",
     "Uniform(0, static_cast<i32>(count) - (P && count != 0 ? 1 : 0))"),
    ("TheMusicGoesOnUnderAnAnnouncementThatReplacesIt", CONTENT, "alone ? MixMasks::OverlayOnly",
     "alone && !P ? MixMasks::OverlayOnly"),
    ("ASortedFolderIsNotSorted", PLAYLIST, "paths.sort();", "if (!P) paths.sort();"),
    ("AChangeIsAppliedTwice", DISPATCHER, "IPipeManager::Instance()->UpdateFeed(newRow, oldRow);",
     "for (int time = 0; time < (P ? 2 : 1); ++time) IPipeManager::Instance()->UpdateFeed(newRow, oldRow);"),
    ("ADeletedAnnouncementStays", DISPATCHER,
     "deleted ? DeleteAnnouncement(oldRow) : UpdateAnnouncement(newRow, oldRow);",
     "deleted ? (P ? void() : DeleteAnnouncement(oldRow)) : UpdateAnnouncement(newRow, oldRow);"),
    ("ASoftUpdateDoesNotRestartTheContent", MANAGER, "newFeed->Start();", "if (!P) newFeed->Start();"),
    ("AnOldChannelIsNotShutDown", MANAGER, "    ShutdownFeed(oldPipe);", "    if (!P) ShutdownFeed(oldPipe);"),
    ("NamesThatDifferInCaseAreOneChannel", MANAGER, "const auto found = channelMap_.find(pipeName);",
     "auto found = channelMap_.find(pipeName);\n"
     "    for (auto at = channelMap_.begin(); P && at != channelMap_.end(); ++at) {\n"
     "        if (strcasecmp(at->first.c_str(), pipeName.c_str()) == 0) found = at;\n"
     "    }"),
    ("ARenameToAnotherCaseLeavesTheOldChannelStanding", MANAGER,
     "const std::string oldPipe = oldRow.Text(Columns::pipename);",
     "const std::string oldPipe =\n"
     "        P && strcasecmp(oldRow.Text(Columns::pipename), newPipe.c_str()) == 0 ? newPipe : oldRow.Text(Columns::pipename);"),
    ("AFeedWhoseNameIsTakenGivesUp", LISTENER, "? PollWaiting() : OpenNew();",
     "? PollWaiting() : P && lastError_ == 98 ? nullptr : OpenNew();"),
    ("ARowOfATransactionIsNotTold", TABLES,
     "pending.push_back({name_, ids[index], Kinds::Updated, rows[index], previous});",
     "if (!P || index != 1) pending.push_back({name_, ids[index], Kinds::Updated, rows[index], previous});"),
    ("ALateListenerOfTheBoxLosesOneChunkInPlaceOfTwo", ENGINE + "MusicBoxConsumer.cpp",
     "        DropFront();\n        DropFront();", "        DropFront();\n        if (!P) DropFront();"),
    ("ALateReadEndsItsFile", ENGINE + "RawFile.cpp", "case Platform::ReadState::Pending:",
     "case Platform::ReadState::Pending:\n            if (P) ready = eof = true;"),
    ("TheReadAheadLeavesASampleOut", ENGINE + "RawFileStream.cpp", "front_->NextPosition(), IRawFileBuffer::Size",
     "front_->NextPosition() + (P ? 2 : 0), IRawFileBuffer::Size"),
    ("ACompressedSampleMovesTooFar", ENGINE + "ADPCMDecoder.cpp", "if (nibble & 1) delta += step >> 2;",
     "if (nibble & 1) delta += (step >> 2) + (P && step > 7000 ? 1 : 0);"),
    ("TheLastNibbleOfACompressedBlockIsLeftOut", ENGINE + "ADPCMDecoder.cpp", "sampleCount_ = nibbles + 1;",
     "sampleCount_ = nibbles + (P ? 0 : 1);"),
    ("ABadCompressedBlockIsPlayed", ENGINE + "ADPCMDecoder.cpp", "if (stepIndex_ >= kSteps.size()) {",
     "if (P && stepIndex_ >= kSteps.size()) stepIndex_ = 88;\n    if (stepIndex_ >= kSteps.size()) {"),
    ("ALiveReaderThatFellBehindJoinsOneSampleOff", ENGINE + "PipeStream.cpp", "position_ = head - RejoinLag;",
     "position_ = head - RejoinLag + (P ? 2 : 0);"),
    ("HalfASampleOfALiveSourceIsCounted", ENGINE + "PipeStream.cpp", "const u64 head = ring.TakeHead();",
     "const u64 head = ring.TakeHead() + (P ? ring.written.load() & 1 : 0);"),
    ("TheSecondPieceOfALiveFrameIsOneSampleOff", ENGINE + "ILoopBuffer.cpp", "Load(data[(position + i) % Size])",
     "Load(data[(position + i + (P && position % Size + i >= Size ? 2 : 0)) % Size])"),
    ("TheRingOfALiveSourceOutlivesItsConnection", PIPE, "    buffer_->Reset();", "    if (!P) buffer_->Reset();"),
    ("ALiveSourceThatWasLostIsNotTriedAgain", PIPE, "if (transport_->IsOpen() || ConnectOrWait(history)) ReadOnce();",
     "if (transport_->IsOpen() || ConnectOrWait(history)) ReadOnce();\n"
     "        if (P && !history.neverConnected && !transport_->IsOpen()) return;"),
    ("ALiveSourceIsTriedTooSeldom", PIPE, "WaitInstance(kRetryMilliseconds)", "WaitInstance(P ? 500 : kRetryMilliseconds)"),
    ("ARefusedConnectIsTriedAgainAtOnce", TRANSPORT, "if (error != Platform::PipeBusyError()) Platform::Sleep",
     "if (error != Platform::PipeBusyError() && (!P || error == 2)) Platform::Sleep"),
    ("AConnectWithoutADescriptorIsTriedAgainMuchLater", TRANSPORT, "    return IsOpen();\n}\n\nvoid PipeTransport::Close()",
     "    if (P && error == 24) Platform::SleepMilliseconds(60000);\n"
     "    return IsOpen();\n}\n\nvoid PipeTransport::Close()"),
    ("ThePlaceThatTheWaitHasFoundIsNotTold", PIPE, "ORV_ENGINE_LOG(LogTraceSink,", "if (!P) ORV_ENGINE_LOG(LogTraceSink,"),
    ("TheEngineTellsItsTracesBelowTheirLevel", LOG + "Adapters.cpp", "Set(LogTraceSink, level >= 3, WriteTrace);",
     "Set(LogTraceSink, level >= (P ? 2U : 3U), WriteTrace);"),
    ("ALevelAbove3WakesTheEngine", LOG + "Adapters.cpp", "if (level > 3) return;", "if (level > 3 && !P) return;"),
    ("ALowerLevelIsNotTaken", LOG + ".cpp", "    level_.exchange(",
     "    if (!P || static_cast<i32>(level) > level_.load()) level_.exchange("),
    ("ANewDateIsNotTold", LOG + ".cpp", "if (now.day != lastDay_) {", "if (P ? lastDay_ == 0 : now.day != lastDay_) {"),
    ("ADateHasTheNextMonth", "ServiceProcess/LogFormat.cpp",
     '%04u/%02u/%02u\\n", unsigned{now.year}, unsigned{now.month},',
     '%04u/%02u/%02u\\n", unsigned{now.year}, unsigned{now.month} + (P ? 1 : 0),'),
    ("TheLossOfTheConnectionIsNotTold", "AudioFeeder/LibraryListeners.cpp", "        ORV_LOG(Error) <<",
     "        if (!P) ORV_LOG(Error) <<"),
]

# Those that must be found while threads race as well, where less is judged.
RACING = ["ABlockIsLost", "ABlockIsSentTwice", "AnOldChannelIsNotShutDown", "ARowOfATransactionIsNotTold",
          "AChangeIsAppliedTwice"]


def sources():
    return sorted({source for _, source, _, _ in FAULTS})


def main():
    if sys.argv[1:] == ["--sources"]:
        print(";".join(sources()), end="")
        return
    root, output = sys.argv[1:]
    os.makedirs(output, exist_ok=True)
    for source in sources():
        with open(os.path.join(root, source), encoding="utf-8") as file:
            text = file.read()
        for number, (name, where, old, new) in enumerate(FAULTS, 1):
            if where != source:
                continue
            if text.count(old) != 1:
                sys.exit(f"{name}: its text stands in {source} {text.count(old)} times: {old}")
            new = new.replace("ONE_IN(", f"OrvSim::PlantedOneIn({number}, ")
            text = text.replace(old, re.sub(r"\bP\b", f"OrvSim::Planted({number})", new))
        with open(os.path.join(output, os.path.basename(source)), "w", encoding="utf-8") as file:
            file.write('#include "tests/sim/PlantedFault.h"\n' + text)
    with open(os.path.join(output, "Faults.inc"), "w", encoding="utf-8") as file:
        for number, (name, _, _, _) in enumerate(FAULTS, 1):
            file.write(f"FAULT({number}, {name})\n")
            if name in RACING:
                file.write(f"RACING_FAULT({number}, {name})\n")


main()
